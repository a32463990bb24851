#include "engine/SlotMap.h"

namespace vellumic {
namespace {

// Slot of each mask bit, -1 for bits that only take a position.
constexpr std::array<int, 19> slotOfBit = [] {
  std::array<int, 19> table{};
  table.fill(-1);
  table[0] = 0;   // front left
  table[1] = 1;   // front right
  table[3] = 2;   // low frequency
  table[18] = 3;  // vendor channel
  table[2] = 4;   // front centre
  table[9] = 5;   // side left
  table[10] = 6;  // side right
  table[8] = 7;   // back centre
  table[4] = 8;   // back left
  table[5] = 9;   // back right
  return table;
}();

}  // namespace

std::uint32_t channelMaskOf(std::uint32_t channels, std::uint32_t formatMask) noexcept {
  if (channels == 1) return 0x1;
  if (channels == 2) return 0x3;
  return formatMask;
}

SlotMap slotMapOf(std::uint32_t channels, std::uint32_t formatMask) noexcept {
  SlotMap map;
  map.fill(-1);
  std::uint32_t mask = channelMaskOf(channels, formatMask);
  if (mask == 0) mask = 0x3;
  std::uint32_t position = 0;
  for (std::uint32_t bit = 0; bit < 32 && position < channels; ++bit) {
    if ((mask >> bit & 1U) == 0) continue;
    if (bit < slotOfBit.size() && slotOfBit[bit] >= 0)
      map[static_cast<std::size_t>(slotOfBit[bit])] = static_cast<std::int32_t>(position);
    ++position;
  }
  return map;
}

}  // namespace vellumic
