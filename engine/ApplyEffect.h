// One frame through the effect of a parameter set. Real-time safe.
#pragma once

#include "engine/SlotMap.h"
#include "parameters/Image.h"

namespace vellumic {

class FrameEngine;

// Through the set in force, in place. Unchanged when the set's effect is off (mask byte 0). The
// array modes apply their input and output trim to the first image[19] slots, whether or not the
// pipeline runs between them.
void applyEffect(FrameEngine& engine, float* slots, ConstImageView image,
                 ConstMaskView mask) noexcept;

// True when applyEffect() comes down to the equaliser, which may then filter whole runs of frames
// with the same result.
bool isEqualizerOnly(ConstImageView image, ConstMaskView mask) noexcept;

// One side of a fade: the set in force or the incoming one, with its own copy of the frame.
struct FadeSide {
  float* slots;
  ConstImageView image;
  ConstMaskView mask;
  bool runsPipeline;
};
FadeSide outgoingSide(FrameEngine& engine, ConstImageView image, ConstMaskView mask) noexcept;
FadeSide incomingSide(FrameEngine& engine) noexcept;

// The same frame through both sides, in place; `weight` of the incoming one, 0 to 1.
//
// There is one pipeline, and it advances once per frame: where both sides run it, it takes the
// blend of both trimmed inputs, and both sides take its output with their own trims. The equaliser
// runs once for each side, through the same memories.
void applyEffects(FrameEngine& engine, const FadeSide& outgoing, const FadeSide& incoming,
                  float weight) noexcept;

}  // namespace vellumic
