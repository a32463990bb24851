// A readable table that says which raw slot feeds which field of a settings struct.
//
// decode() writes every bound field from the raw values. Guards: a float that is not finite keeps
// the value in force; an integer is truncated with saturation and then held in its stated range,
// or, where the range is strict, keeps the value in force when it lies outside; NaN keeps it too.
#pragma once

#include <algorithm>
#include <cmath>
#include <span>
#include <variant>

#include "parameters/Raw.h"
#include "parameters/Saturate.h"

namespace vellumic {

enum class OutOfRange { clamp, keep };

template <class Settings>
struct IntegerField {
  int Settings::*field;
  int low, high;
  OutOfRange rule;
};

template <class Settings>
struct Binding {
  Raw slot;
  std::variant<bool Settings::*, float Settings::*, IntegerField<Settings>> field;
};

template <class Settings>
void decode(RawView raw, std::span<const Binding<Settings>> table, Settings& settings) noexcept {
  for (const auto& binding : table) {
    const float stored = value(raw, binding.slot);
    if (auto* toggle = std::get_if<bool Settings::*>(&binding.field)) {
      settings.** toggle = stored == 1.0F;
    } else if (auto* number = std::get_if<float Settings::*>(&binding.field)) {
      if (std::isfinite(stored)) settings.** number = stored;
    } else if (auto* integer = std::get_if<IntegerField<Settings>>(&binding.field)) {
      int& present = settings.*(integer->field);
      const int wanted = saturatedInt(stored, present);
      const bool inside = wanted >= integer->low && wanted <= integer->high;
      if (inside || integer->rule == OutOfRange::clamp)
        present = std::clamp(wanted, integer->low, integer->high);
    }
  }
}

}  // namespace vellumic
