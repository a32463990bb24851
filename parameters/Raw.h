// The 1365 tuning values as stored, and the names of those that the system reads.
//
// Slot n holds the bits of the registry value Param<n+1>. A value can be anything: NaN, infinity,
// 1e30. Nothing here checks it; whoever decodes a slot converts with saturation (see Binding.h).
// This is the one place where a slot has a number.
#pragma once

#include <cstddef>
#include <span>

namespace vellumic {

inline constexpr std::size_t rawCount = 1365;
using RawView = std::span<const float, rawCount>;

enum class Raw : std::size_t {
#define PARAMETER(slot, index, name, unit, kind, factory, low, high, meaning) slot = index,
#include "parameters/Catalogue.def"
#undef PARAMETER
};

inline constexpr int equalizerSides = 2;   // first and second channel of a pair
inline constexpr int equalizerBands = 10;  // per side
enum class BandField : std::size_t { enable, type, frequency, gain, q };

// side 0 or 1, band 0 to 9.
constexpr Raw bandSlot(int side, int band, BandField field) noexcept {
  constexpr std::size_t firstSlot = 1181, perBand = 5;
  return static_cast<Raw>(firstSlot +
                          perBand * static_cast<std::size_t>(side * equalizerBands + band) +
                          static_cast<std::size_t>(field));
}

constexpr std::size_t index(Raw slot) noexcept { return static_cast<std::size_t>(slot); }
constexpr float value(RawView raw, Raw slot) noexcept { return raw[index(slot)]; }
// A toggle is on only at exactly 1.
constexpr bool isOn(RawView raw, Raw slot) noexcept { return value(raw, slot) == 1.0F; }

// The value with all stages on; 1365 floats, zero where nothing reads the slot.
constexpr float factoryValue(Raw slot) noexcept {
  switch (slot) {
#define PARAMETER(slot, index, name, unit, kind, factory, low, high, meaning) \
  case Raw::slot:                                                             \
    return factory;
#include "parameters/Catalogue.def"
#undef PARAMETER
    default:
      return 0.0F;
  }
}

}  // namespace vellumic
