// The way back: stored values as commented TOML.
#include <algorithm>
#include <cmath>
#include <set>

#include "parameters/SettingValue.h"
#include "parameters/SettingsFile.h"

namespace vellumic {
namespace {

std::string groupOf(const Parameter& parameter) {
  return parameter.name.substr(0, parameter.name.rfind('.'));
}

std::string comment(const Parameter& parameter, float stored) {
  std::string text = "# " + parameter.meaning;
  if (parameter.takesDecibels() && stored > 0.0F && std::isfinite(stored)) {
    const float decibels = std::round(200.0F * std::log10(stored)) / 10.0F;
    text += "; " + decimal(decibels == 0.0F ? 0.0F : decibels) + " dB";
  } else if (!parameter.unit.empty()) {
    text += "; " + parameter.unit;
  }
  return text + "\n";
}

}  // namespace

std::string writeSettings(const RawValues& values, SettingsScope scope) {
  // A table may be opened only once, so the slots are gathered by group, in the order of their
  // first slot.
  std::vector<std::string> groups;
  for (const Parameter& parameter : catalogue())
    if (std::ranges::find(groups, groupOf(parameter)) == groups.end())
      groups.push_back(groupOf(parameter));

  std::string text;
  std::set<std::string> explained;
  for (const std::string& group : groups) {
    std::string lines;
    for (const Parameter& parameter : catalogue()) {
      const float stored = values[index(parameter.slot)];
      const bool changed = !(stored == parameter.factory);
      if (groupOf(parameter) != group || (scope != SettingsScope::all && !changed)) continue;
      // The twenty bands of the equaliser are explained once.
      const std::string explanation = comment(parameter, stored);
      if (explained.insert(explanation).second) lines += explanation;
      const std::string key = parameter.name.substr(group.size() + 1);
      if (std::isfinite(stored))
        lines += key + " = " + writtenSetting(parameter, stored) + "\n";
      else
        lines += "# " + key + " holds " + decimal(stored) + ", which cannot be written here\n";
    }
    if (lines.empty()) continue;
    text.append(text.empty() ? "[" : "\n[").append(group).append("]\n").append(lines);
  }
  return text;
}

}  // namespace vellumic
