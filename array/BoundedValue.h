// A number with optional limits. Setting it applies the upper bound, if on, then the lower one;
// changing a bound applies it at once. NaN passes every bound.
#pragma once

#include <cstdint>

namespace vellumic {

template <class Number>
struct BoundedValue {
  Number value{};
  Number upperBound{};
  Number lowerBound{};
  bool hasUpperBound = false;
  bool hasLowerBound = false;

  constexpr BoundedValue() = default;
  constexpr explicit BoundedValue(Number start) : value(start) {}

  static constexpr BoundedValue atLeast(Number lowest, Number start) {
    BoundedValue bounded(start);
    bounded.setLowerBound(lowest);
    return bounded;
  }

  constexpr operator Number() const noexcept { return value; }  // reads like the number it is
  constexpr BoundedValue& operator=(Number newValue) noexcept {
    value = newValue;
    if (hasUpperBound && value > upperBound) value = upperBound;
    if (hasLowerBound && value < lowerBound) value = lowerBound;
    return *this;
  }
  constexpr void setUpperBound(Number bound) noexcept {
    upperBound = bound;
    hasUpperBound = true;
    *this = value;
  }
  constexpr void setLowerBound(Number bound) noexcept {
    lowerBound = bound;
    hasLowerBound = true;
    *this = value;
  }
};

using BoundedFloat = BoundedValue<float>;
using BoundedInt = BoundedValue<std::int32_t>;

}  // namespace vellumic
