// One frame through the effect of a parameter set. Real-time safe.
#pragma once

#include "engine/SlotMap.h"
#include "parameters/Image.h"

namespace vellumic {

class FrameEngine;

// In place. Unchanged when the set's effect is off (mask byte 0). The array modes apply their input
// and output trim to the first image[19] slots, whether or not the pipeline runs between them.
void applyEffect(FrameEngine& engine, float* slots, ConstImageView image,
                 ConstMaskView mask) noexcept;

// True when applyEffect() comes down to the equaliser, which may then filter whole runs of frames
// with the same result.
bool isEqualizerOnly(ConstImageView image, ConstMaskView mask) noexcept;

// The same frame through the set in force (`slots`) and the incoming one (`nextSlots`), for the
// frames of a fade; `weight` of the incoming set, 0 to 1.
//
// There is one pipeline, and it advances once per frame: where both sets use it, it takes the
// blend of both sides' trimmed inputs, and both sides take its output with their own trims. The
// equaliser runs once for each side, through the same memories.
void applyEffects(FrameEngine& engine, float* slots, ConstImageView image, ConstMaskView mask,
                  float* nextSlots, ConstImageView nextImage, ConstMaskView nextMask,
                  float weight) noexcept;

}  // namespace vellumic
