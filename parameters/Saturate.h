// Conversions of tuning values that can be anything.
#pragma once

#include <cmath>
#include <limits>

namespace vellumic {

// Truncates toward zero; NaN gives `otherwise`, what does not fit gives the nearest int.
inline int saturatedInt(float value, int otherwise = 0) noexcept {
  if (std::isnan(value)) return otherwise;
  constexpr float limit = 2147483648.0F;
  if (value >= limit) return std::numeric_limits<int>::max();
  if (value < -limit) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}

}  // namespace vellumic
