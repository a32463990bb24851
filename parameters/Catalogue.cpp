#include "parameters/Catalogue.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vellumic {
namespace {

constexpr std::string_view decibelSuffix = "_db";

constexpr std::array<std::string_view, 8> filterTypes{
    "gain", "peak", "low_pass", "high_pass", "low_shelf", "high_shelf", "notch", "band_pass"};

void addBand(std::vector<Parameter>& parameters, int side, int band) {
  const std::string prefix = std::string("equalizer.") + (side == 0 ? "left" : "right") + ".band" +
                             std::to_string(band + 1) + ".";
  const auto add = [&](BandField field, std::string_view name, std::string_view unit,
                       ParameterKind kind, float factory, float low, float high,
                       std::string_view meaning) {
    parameters.push_back({bandSlot(side, band, field), prefix + std::string(name),
                          std::string(unit), kind, factory, low, high, std::string(meaning)});
  };
  using enum ParameterKind;
  add(BandField::enable, "enabled", "", toggle, 0.0F, 0.0F, 1.0F, "band on");
  add(BandField::type, "type", "", filterType, 1.0F, 0.0F, 7.0F,
      "shape of the band; anything but 0 to 7 is a flat gain");
  add(BandField::frequency, "frequency_hz", "Hz", number, 1000.0F, 10.0F, 20000.0F,
      "centre or corner frequency; below half the sample rate");
  add(BandField::gain, "gain", "linear", number, 1.0F, 0.01F, 100.0F,
      "gain of flat bands, peaks and shelves; 1 is unity");
  add(BandField::q, "q", "", number, 0.7F, 0.05F, 50.0F,
      "quality factor; low and high pass do without");
}

std::vector<Parameter> buildCatalogue() {
  using enum ParameterKind;
  std::vector<Parameter> parameters{
#define PARAMETER(slot, index, name, unit, kind, factory, low, high, meaning) \
  {Raw::slot, name, unit, kind, factory, low, high, meaning},
#include "parameters/Catalogue.def"
#undef PARAMETER
  };
  for (int side = 0; side < equalizerSides; ++side)
    for (int band = 0; band < equalizerBands; ++band) addBand(parameters, side, band);
  std::ranges::sort(parameters, {}, &Parameter::slot);
  return parameters;
}

const Parameter* findExactly(std::string_view name) {
  const auto found = std::ranges::find(catalogue(), name, &Parameter::name);
  return found == catalogue().end() ? nullptr : &*found;
}

// Levenshtein distance.
std::size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::span<const Parameter> catalogue() {
  static const std::vector<Parameter> parameters = buildCatalogue();
  return parameters;
}

std::optional<ParameterName> findParameter(std::string_view name) {
  if (const Parameter* parameter = findExactly(name)) return ParameterName{parameter, false};
  if (!name.ends_with(decibelSuffix)) return std::nullopt;
  name.remove_suffix(decibelSuffix.size());
  const Parameter* parameter = findExactly(name);
  if (parameter == nullptr || !parameter->takesDecibels()) return std::nullopt;
  return ParameterName{parameter, true};
}

const Parameter* findParameter(Raw slot) {
  const auto found = std::ranges::lower_bound(catalogue(), slot, {}, &Parameter::slot);
  return found == catalogue().end() || found->slot != slot ? nullptr : &*found;
}

bool isParameterGroup(std::string_view name) {
  const std::string prefix = std::string(name) + ".";
  return std::ranges::any_of(
      catalogue(), [&](const Parameter& parameter) { return parameter.name.starts_with(prefix); });
}

std::string nearestParameterName(std::string_view name) {
  constexpr std::size_t longestTypo = 100;  // what a file calls a name may be megabytes
  name = name.substr(0, longestTypo);
  const bool decibels = name.ends_with(decibelSuffix);
  const std::string group = isParameterGroup(name) ? std::string(name) + "." : "";
  std::string nearest;
  std::size_t fewest = std::string_view::npos;
  for (const Parameter& parameter : catalogue()) {
    std::string known = parameter.name;
    if (!known.starts_with(group)) continue;
    if (decibels && parameter.takesDecibels()) known += decibelSuffix;
    const std::size_t edits = editDistance(name, known);
    if (edits < fewest) {
      fewest = edits;
      nearest = known;
    }
  }
  return nearest;
}

const RawValues& factorySettings() {
  static const RawValues values = [] {
    RawValues built{};
    for (const Parameter& parameter : catalogue()) built[index(parameter.slot)] = parameter.factory;
    return built;
  }();
  return values;
}

std::span<const std::string_view> filterTypeNames() noexcept { return filterTypes; }

}  // namespace vellumic
