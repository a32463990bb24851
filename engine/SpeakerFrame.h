// Reading and writing a frame by speaker position: the front pair always, other speakers under
// their marks in the mask. Real-time safe.
#pragma once

#include "engine/SlotMap.h"
#include "parameters/Image.h"

namespace vellumic {

// Slots that the stream does not have, or whose mark is 0, are left alone.
void readSpeakers(const float* input, const SlotMap& map, ConstMaskView mask,
                  float* slots) noexcept;
void writeSpeakers(const float* slots, const SlotMap& map, ConstMaskView mask,
                   float* output) noexcept;

// slots = (1 - weight) * slots + weight * nextSlots, for the slots that writeSpeakers() writes.
void mixSpeakers(float* slots, const float* nextSlots, float weight, ConstMaskView mask) noexcept;

}  // namespace vellumic
