// Reading, mixing and writing the slots of a frame: by position in the stream, or by speaker, the
// front pair always and others under their marks in the mask. Real-time safe.
#pragma once

#include "engine/SlotMap.h"
#include "parameters/Image.h"
#include "platform/Realtime.h"

namespace vellumic {

// Channel c to slot c and back. Slots without a channel are left alone; channels without a slot
// are dropped, or silent.
void readPositions(const float* input, std::uint32_t channels,
                   float* slots) noexcept VELLUMIC_NONBLOCKING;
void writePositions(const float* slots, std::uint32_t channels,
                    float* output) noexcept VELLUMIC_NONBLOCKING;

// slots = (1 - weight) * slots + weight * nextSlots, all of them.
void mixPositions(float* slots, const float* nextSlots, float weight) noexcept VELLUMIC_NONBLOCKING;

// Slots that the stream does not have, or whose mark is 0, are left alone.
void readSpeakers(const float* input, const SlotMap& map, ConstMaskView mask,
                  float* slots) noexcept VELLUMIC_NONBLOCKING;
void writeSpeakers(const float* slots, const SlotMap& map, ConstMaskView mask,
                   float* output) noexcept VELLUMIC_NONBLOCKING;

// As mixPositions(), for the slots that writeSpeakers() writes.
void mixSpeakers(float* slots, const float* nextSlots, float weight,
                 ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
