#include "parameters/SettingValue.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vellumic {
namespace {

// In simulated rooms with recorded talkers the filters begin to diverge from here on.
constexpr float runawayCrossFactor = 0.9F;

std::string shown(const SettingValue& value) {
  if (const bool* toggle = std::get_if<bool>(&value)) return *toggle ? "true" : "false";
  if (const double* number = std::get_if<double>(&value)) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof(text), *number).ptr};
  }
  if (const auto* text = std::get_if<std::string>(&value)) return "the text \"" + *text + "\"";
  return std::get<OtherValue>(value).description;
}

std::string listOfFilterTypes() {
  std::string list;
  for (const std::string_view type : filterTypeNames())
    list += (list.empty() ? "\"" : ", \"") + std::string(type) + "\"";
  return list;
}

std::string wanted(const ParameterName& name) {
  const Parameter& parameter = *name.parameter;
  if (parameter.kind == ParameterKind::toggle) return "true or false";
  if (parameter.kind == ParameterKind::filterType) return "one of " + listOfFilterTypes();
  if (name.decibels) return "a number of decibels";
  if (parameter.kind == ParameterKind::integer) return "a whole number";
  return "a number";
}

std::string mended(const ParameterName& name) {
  const Parameter& parameter = *name.parameter;
  const float factory = parameter.factory;
  return "write for instance " + parameter.name + (name.decibels ? "_db = " : " = ") +
         (name.decibels ? decimal(std::round(20.0F * std::log10(factory)))
                        : writtenSetting(parameter, factory));
}

SettingConversion needs(const ParameterName& name, const SettingValue& value) {
  return {.error = "needs " + wanted(name) + ", found " + shown(value) + "; " + mended(name)};
}

std::string rangeWarning(const Parameter& parameter, float stored) {
  const float low = parameter.low, high = parameter.high;
  if (parameter.kind == ParameterKind::toggle && stored != 0.0F && stored != 1.0F)
    return decimal(stored) + " counts as off; only 1 or true is on";
  if (stored < low || stored > high)
    return decimal(stored) + " is outside the sensible range " + decimal(low) + " to " +
           decimal(high) + "; applied all the same";
  if (parameter.slot == Raw::echoCrossFactor && stored >= runawayCrossFactor)
    return decimal(stored) +
           " can make the filters run away: at 0.95 the output was up to 38 dB above the echo, "
           "and at 1 up to 130 dB; keep it at 0.8 or less; applied all the same";
  const bool whole = parameter.kind != ParameterKind::number;
  if (whole && stored != std::trunc(stored)) return decimal(stored) + " loses its fraction";
  return {};
}

SettingConversion fromNumber(const ParameterName& name, double number, const SettingValue& value) {
  const double linear = name.decibels ? std::pow(10.0, number / 20.0) : number;
  const auto stored = static_cast<float>(std::clamp(linear, -1e300, 1e300));
  if (!std::isfinite(number) || !std::isfinite(stored))
    return {.error = shown(value) + " is not a number that can be stored; " + mended(name)};
  return {.stored = stored, .warning = rangeWarning(*name.parameter, stored)};
}

}  // namespace

SettingValue parseSetting(std::string_view text) {
  if (text == "true" || text == "on") return true;
  if (text == "false" || text == "off") return false;
  std::string_view digits = text;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  double number = 0.0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number);
  if (stop == end && error == std::errc{}) return number;
  if (stop == end && error == std::errc::result_out_of_range) return HUGE_VAL;
  if (text.size() >= 2 && text.front() == text.back() &&
      (text.front() == '"' || text.front() == '\''))
    text = text.substr(1, text.size() - 2);
  return std::string(text);
}

SettingConversion convertSetting(const ParameterName& name, const SettingValue& value) {
  const ParameterKind kind = name.parameter->kind;
  if (const bool* toggle = std::get_if<bool>(&value); toggle && kind == ParameterKind::toggle)
    return {.stored = *toggle ? 1.0F : 0.0F};
  if (const double* number = std::get_if<double>(&value)) return fromNumber(name, *number, value);
  if (const auto* text = std::get_if<std::string>(&value);
      text && kind == ParameterKind::filterType) {
    const auto types = filterTypeNames();
    const auto type = std::ranges::find(types, *text);
    if (type != types.end()) return {.stored = static_cast<float>(type - types.begin())};
  }
  return needs(name, value);
}

std::string writtenSetting(const Parameter& parameter, float stored) {
  const bool whole = stored == std::trunc(stored) && std::abs(stored) < 1e6F;
  if (parameter.kind == ParameterKind::toggle && (stored == 0.0F || stored == 1.0F))
    return stored == 1.0F ? "true" : "false";
  if (parameter.kind == ParameterKind::filterType && whole && stored >= 0.0F && stored <= 7.0F)
    return '"' + std::string(filterTypeNames()[static_cast<std::size_t>(stored)]) + '"';
  if (parameter.kind == ParameterKind::integer && whole)
    return std::to_string(static_cast<int>(stored));
  return decimal(stored);
}

std::string decimal(float value) {
  char text[32];
  std::string digits(text, std::to_chars(text, text + sizeof(text), value).ptr);
  if (digits.find_first_of(".en") == std::string::npos) digits += ".0";
  return digits;
}

}  // namespace vellumic
