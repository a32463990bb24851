// Exchange of parameter sets between an object's slots and the engine. Real-time safe.
#pragma once

#include <cstdint>

#include "platform/Realtime.h"

namespace vellumic {

class FrameEngine;

// Exchanges the pointer behind each non-null slot with the engine's matching one, then inverts
// `toggle`. The endpoint volumes of the image that the slot held are copied into the image that
// leaves the engine, so that the newest volumes survive both exchanges of a fade.
void swapSets(FrameEngine& engine, float** fadeSlot, float** imageSlot, std::uint8_t** maskSlot,
              void** reservedSlot, std::uint8_t& toggle) noexcept VELLUMIC_NONBLOCKING;

// Mask of the engine's incoming image; the equaliser's memories start from zero.
void rebuildNextMask(FrameEngine& engine) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
