// A value as it is written in a settings file or an assignment, and the float that it stands for.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "parameters/Catalogue.h"

namespace vellumic {

struct OtherValue {
  std::string description;  // "a list"
};
using SettingValue = std::variant<bool, double, std::string, OtherValue>;

// A value without its type, as in NAME=VALUE: true, false, on, off, a number, else text; quotes
// around text are taken off.
SettingValue parseSetting(std::string_view text);

struct SettingConversion {
  float stored = 0.0F;
  std::string error{};    // empty if the value can be stored; says how to mend it
  std::string warning{};  // empty if the value is sensible
};
SettingConversion convertSetting(const ParameterName& name, const SettingValue& value);

// A stored value as a settings file says it: true or false, a filter type's name, a number.
std::string writtenSetting(const Parameter& parameter, float stored);

// The shortest decimal that reads back as the same float, always with a point or an exponent.
std::string decimal(float value);

}  // namespace vellumic
