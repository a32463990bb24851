// Frames through the effect of a parameter set. Real-time safe.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/SlotMap.h"
#include "parameters/Image.h"
#include "platform/Realtime.h"

namespace vellumic {

class FrameEngine;

// Frames on their way through the engine, `width` floats apart.
struct FrameRun {
  float* slots;
  std::size_t width;
  std::size_t frames;
};

// Through the set in force, in place; the same result as frame by frame. Unchanged when the set's
// effect is off (mask byte 0). The array modes apply their input and output trim to the first
// image[19] slots, whether or not the pipeline runs between them.
void applyEffect(FrameEngine& engine, const FrameRun& run, ConstImageView image,
                 ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING;

// The least width that the effect needs for a stream of so many channels, up to slotCount.
std::size_t runWidth(const FrameEngine& engine, ConstImageView image, ConstMaskView mask,
                     std::uint32_t channels) noexcept VELLUMIC_NONBLOCKING;

// One side of a fade: the set in force or the incoming one, with its own copy of the frame.
struct FadeSide {
  float* slots;
  ConstImageView image;
  ConstMaskView mask;
  bool runsPipeline;
};
FadeSide outgoingSide(FrameEngine& engine, ConstImageView image,
                      ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING;
FadeSide incomingSide(FrameEngine& engine) noexcept VELLUMIC_NONBLOCKING;

// The same frame through both sides, in place; `weight` of the incoming one, 0 to 1.
//
// There is one pipeline, and it advances once per frame: where both sides run it, it takes the
// blend of both trimmed inputs, and both sides take its output with their own trims. The equaliser
// runs once for each side, through the same memories.
void applyEffects(FrameEngine& engine, const FadeSide& outgoing, const FadeSide& incoming,
                  float weight) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
