// The builder of parameter images: what the frame path reads, derived from the raw values for one
// stream and processing mode.
//
// Threads: worker or control thread, under parameterLock once the stream may run. Bad values cannot
// make a build fail: a rate outside the table turns the effect off, a bad gain becomes 1. Memory
// may run out when the pipeline needs newly sized parts (std::bad_alloc).
#pragma once

#include <cstdint>
#include <span>

#include "engine/ProcessingMode.h"
#include "parameters/Image.h"
#include "parameters/Raw.h"
#include "platform/Realtime.h"

namespace vellumic {

class FrameEngine;

// Which effects a build found running.
namespace effect_flags {
inline constexpr std::uint32_t equalizer = 1U << 3, echoCancellation = 1U << 9,
                               beamforming = 1U << 10, noiseSuppression = 1U << 11,
                               automaticGain = 1U << 12;
}

// Fills image and mask, and leaves equaliser and pipeline settings waiting in engine.handover.
// Expects the stream in entries 8, 19 to 24. A fade request in the raw values is used up.
// Returns the effect_flags.
std::uint32_t buildImage(FrameEngine& engine, std::span<float, rawCount> raw, ImageView image,
                         MaskView mask, ProcessingMode processingMode, EffectMode effectMode);

// mask[i] = image[i] is not 0, for all entries.
void buildMask(ConstImageView image, MaskView mask) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
