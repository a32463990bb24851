// Every tuning value that the system reads: name, place, unit, factory value, sensible range.
// The single source of truth for settings files, tools and the documentation page.
// Not for the real-time thread.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "parameters/Raw.h"

namespace vellumic {

using RawValues = std::array<float, rawCount>;

enum class ParameterKind {
  toggle,  // on only at exactly 1
  number,
  integer,     // fractions are cut off
  filterType,  // an integer 0 to 7 with names
};

struct Parameter {
  Raw slot;
  std::string name;  // "equalizer.left.band1.frequency_hz"
  std::string unit;  // "" for plain numbers; "linear" may also be given in decibels as <name>_db
  ParameterKind kind;
  float factory;
  float low, high;  // sensible range
  std::string meaning;

  bool takesDecibels() const noexcept { return unit == "linear"; }
};

// All parameters in the order of their slots.
std::span<const Parameter> catalogue();

// A name as a user may write it.
struct ParameterName {
  const Parameter* parameter;
  bool decibels;  // written as <name>_db: value = 10^(dB/20)
};
std::optional<ParameterName> findParameter(std::string_view name);
const Parameter* findParameter(Raw slot);

// Whether the dotted name is the beginning of a parameter's name: "noise.gain".
bool isParameterGroup(std::string_view name);

// The known name with the fewest edits from `name`; one of the group if `name` is a group's.
std::string nearestParameterName(std::string_view name);

// All stages on; zero where nothing reads the slot.
const RawValues& factorySettings();

// Names of the filter types 0 to 7: "gain", "peak", "low_pass", "high_pass", "low_shelf",
// "high_shelf", "notch", "band_pass".
std::span<const std::string_view> filterTypeNames() noexcept;

}  // namespace vellumic
