// Where the speakers of an interleaved stream lie in the 12-slot frame.
//
//   slot  mask bit  speaker              slot  mask bit  speaker
//    0     0        front left            6    10        side right
//    1     1        front right           7     8        back centre
//    2     3        low frequency         8     4        back left
//    3     18       vendor channel        9     5        back right
//    4     2        front centre         10, 11          never mapped
//    5     9        side left
//
// Mask bits 6 and 7 take a stream position but have no slot.
#pragma once

#include <array>
#include <cstdint>

namespace vellumic {

inline constexpr int slotCount = 12;
using SlotMap = std::array<std::int32_t, 16>;  // slot to stream position, -1 absent; 12 used

// The mask that counts for a stream: 1 for one channel, 3 for two, else the format's own (0 if it
// has none).
std::uint32_t channelMaskOf(std::uint32_t channels, std::uint32_t formatMask) noexcept;

// Each mask bit in ascending order takes the next stream position. A mask of 0 maps the first two
// positions to the front pair. Positions at or beyond `channels` are absent.
SlotMap slotMapOf(std::uint32_t channels, std::uint32_t formatMask) noexcept;

}  // namespace vellumic
