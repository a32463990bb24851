// What a plan moves and what it holds: [settings] and [measure_with].
#include <algorithm>
#include <cmath>
#include <limits>

#include "parameters/SettingValue.h"
#include "parameters/SettingsFile.h"
#include "tools/tune/PlanSection.h"

namespace vellumic::tune {
namespace {

using NamedSetting = std::pair<std::string, const toml::node*>;

void collectSettings(const toml::table& table, const std::string& before,
                     std::vector<NamedSetting>& found) {
  for (const auto& [key, node] : table) {
    const std::string name = before + std::string(key.str());
    const toml::table* inner = node.as_table();
    if (inner && isParameterGroup(name))
      collectSettings(*inner, name + ".", found);
    else
      found.emplace_back(name, &node);
  }
}

// What stands under the names of settings, which may be quoted or, as in settings files, not; in
// the order of the names.
std::vector<NamedSetting> namedSettings(const toml::table& table) {
  std::vector<NamedSetting> found;
  collectSettings(table, "", found);
  std::ranges::sort(found, {}, &NamedSetting::first);
  return found;
}

const Parameter& parameterNamed(const Section& section, const std::string& name) {
  const auto found = findParameter(name);
  if (!found || found->decibels)
    section.fail(name, "no such setting; did you mean " + nearestParameterName(name) + "?");
  if (found->parameter->kind == ParameterKind::filterType)
    section.fail(name, "is a choice of filters, which cannot be tuned; leave it out");
  return *found->parameter;
}

void readSwitch(Section& section, Dimension& dimension) {
  dimension.isSwitch = true;
  const auto start = section.flag("start");
  dimension.start = start ? (*start ? 1.0 : 0.0) : dimension.factory;
}

void checkRange(const Section& section, const std::string& key, const Parameter& parameter,
                double low, double high) {
  const double least = parameter.low, most = parameter.high;
  if (low < least || high > most)
    section.fail(key, "leaves the sensible range, " + decimal(parameter.low) + " to " +
                          decimal(parameter.high));
}

// Two values of which one is right, as a toggle has them.
void readChoice(Section& section, const Parameter& parameter, Dimension& dimension) {
  const std::vector<int> values = section.wholes("choice", -1000000, 1000000);
  if (values.size() != 2 || values[0] >= values[1])
    section.fail("choice", "write two whole numbers, the lower one first, as in [4, 8]");
  checkRange(section, "choice", parameter, values[0], values[1]);
  dimension.isSwitch = true;
  dimension.low = values[0];
  dimension.high = values[1];
  dimension.start = section.number("start").value_or(dimension.factory);
  for (const double value : {dimension.start, dimension.factory})
    if (value != dimension.low && value != dimension.high)
      section.fail("choice", "must hold the start and the factory value");
}

void readRange(Section& section, const Parameter& parameter, Dimension& dimension) {
  const auto low = section.number("low"), high = section.number("high");
  if (!low || !high) section.fail("", "needs low and high");
  if (!(*low < *high)) section.fail("low", "is an empty range; write low below high");
  checkRange(section, "low", parameter, *low, *high);
  if (dimension.integer && (*low != std::floor(*low) || *high != std::floor(*high)))
    section.fail("low", "and high must be whole numbers for this setting");
  const std::string scale = section.text("scale");
  if (!scale.empty() && scale != "log" && scale != "linear")
    section.fail("scale", "write \"log\" or \"linear\"");
  dimension.logarithmic = scale == "log";
  if (dimension.logarithmic && !(*low > 0.0)) section.fail("low", "must be above 0 for \"log\"");
  dimension.low = *low;
  dimension.high = *high;
  dimension.start = section.number("start").value_or(std::clamp(dimension.factory, *low, *high));
  if (dimension.start < *low || dimension.start > *high)
    section.fail("start", "write a value from low to high");
}

}  // namespace

void readSpace(Section& root, Plan& plan) {
  Section settings = root.inner("settings");
  int switches = 0;
  for (const auto& [name, node] : namedSettings(settings.table())) {
    const Parameter& parameter = parameterNamed(settings, name);
    if (!node->is_table()) settings.fail(name, "write a table: { low = .., high = .. }");
    if (!plan.slots.empty() && plan.slots.back() == parameter.slot)
      settings.fail(name, "stands here twice; take one out");
    Section section(*node->as_table(), root.source(), "settings." + name);
    Dimension dimension;
    dimension.name = name;
    dimension.factory = static_cast<double>(parameter.factory);
    dimension.integer = parameter.kind == ParameterKind::integer;
    if (parameter.kind == ParameterKind::toggle || section.find("choice") != nullptr) {
      parameter.kind == ParameterKind::toggle ? readSwitch(section, dimension)
                                              : readChoice(section, parameter, dimension);
      if (++switches > mostSwitches)
        settings.fail(name, "is one switch too many; at most " + std::to_string(mostSwitches));
    } else {
      readRange(section, parameter, dimension);
    }
    section.done();
    plan.space.push_back(dimension);
    plan.slots.push_back(parameter.slot);
  }
  if (plan.space.empty()) settings.fail("", "names no setting to tune; add one under [settings]");
}

void readFixed(Section& root, Plan& plan) {
  plan.measuredWith = factorySettings();
  const toml::node* node = root.find("measure_with");
  if (!node) return;
  if (!node->is_table()) root.fail("measure_with", "write a table, as in [measure_with]");
  for (const auto& [name, value] : namedSettings(*node->as_table())) {
    const Parameter& parameter = parameterNamed(root, name);
    if (std::ranges::find(plan.slots, parameter.slot) != plan.slots.end())
      root.fail("measure_with", name + " is moved by [settings]; take it out of one");
    const auto number = value->is_boolean()
                            ? std::optional<double>(*value->value<bool>() ? 1.0 : 0.0)
                            : value->value<double>();
    if (!number || !(std::abs(*number) <= std::numeric_limits<float>::max()))
      root.fail("measure_with", name + ": write a number, true or false");
    plan.measuredWith[index(parameter.slot)] = static_cast<float>(*number);
  }
}

}  // namespace vellumic::tune
