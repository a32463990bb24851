#include "tools/render/Variants.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

#include "tools/Arguments.h"

namespace vellumic::tools {
namespace {

Variant variantFrom(const RenderOptions& options, SettingsWarnings& warnings) {
  const RenderJob settings = loadSettings(options, warnings);
  return {.label = "",
          .settings = settings.settings,
          .changes = settings.changes,
          .outputFile = options.outputFile};
}

// "out.wav" and "quiet" give "out_quiet.wav".
std::string outputFor(const std::string& outputFile, std::string label) {
  std::ranges::replace_if(
      label,
      [](unsigned char c) { return std::isalnum(c) == 0 && c != '.' && c != '-' && c != '_'; },
      '_');
  std::filesystem::path path = outputFile;
  const std::string name = path.stem().string() + "_" + label + path.extension().string();
  return path.replace_filename(name).string();
}

std::vector<Variant> comparison(const RenderOptions& options, SettingsWarnings& warnings) {
  RenderOptions other = options;
  other.settingsFiles = {options.compareFile};
  std::vector<Variant> pair{variantFrom(options, warnings), variantFrom(other, warnings)};
  const auto stem = [](const std::string& file) {
    return std::filesystem::path(file).stem().string();
  };
  pair[1].label = stem(options.compareFile);
  pair[0].label = options.settingsFiles.empty() ? "factory" : stem(options.settingsFiles.back());
  if (pair[0].label == pair[1].label) pair[0].label = "given";
  pair[1].outputFile = outputFor(options.outputFile, pair[1].label);
  return pair;
}

// One value of a sweep. Messages about it name the option that the user wrote.
Variant sweptVariant(const RenderOptions& options, const std::string& assignment,
                     SettingsWarnings& warnings) {
  const std::string ours = "--set " + assignment;
  const auto renamed = [&ours, &assignment](const std::string& message) {
    return message.starts_with(ours) ? "--sweep " + assignment + message.substr(ours.size())
                                     : message;
  };
  RenderOptions one = options;
  one.assignments.push_back(assignment);
  try {
    SettingsWarnings own;
    Variant variant = variantFrom(one, own);
    for (const std::string& warning : own) warnings.push_back(renamed(warning));
    return variant;
  } catch (const SettingsError& error) {
    throw UsageError(renamed(error.what()));
  }
}

std::vector<Variant> sweep(const RenderOptions& options, SettingsWarnings& warnings) {
  constexpr std::size_t mostValues = 20;
  const std::size_t sign = options.sweep.find('=');
  if (sign == std::string::npos || sign == 0 || sign + 1 == options.sweep.size() ||
      options.sweep.back() == ',')
    throw UsageError("--sweep " + options.sweep +
                     ": write NAME=A,B,C as in noise.gain.floor2_db=-20,-10,-5");
  const std::string name = options.sweep.substr(0, sign);
  if (!findParameter(name))
    throw UsageError("--sweep " + name + ": no such setting; did you mean " +
                     nearestParameterName(name) + "?");
  std::istringstream list(options.sweep.substr(sign + 1));
  std::vector<Variant> variants;
  for (std::string value; std::getline(list, value, ',');) {
    variants.push_back(sweptVariant(options, name + "=" + value, warnings));
    variants.back().label = value;
    variants.back().outputFile = outputFor(options.outputFile, value);
    if (std::ranges::count(variants, variants.back().outputFile, &Variant::outputFile) > 1)
      throw UsageError("--sweep " + name + ": has " + value + " twice; give each value once");
  }
  if (variants.size() > mostValues)
    throw UsageError("--sweep " + name + ": has " + std::to_string(variants.size()) +
                     " values; give at most " + std::to_string(mostValues));
  return variants;
}

}  // namespace

std::vector<Variant> variantsOf(const RenderOptions& options, SettingsWarnings& warnings) {
  std::vector<Variant> variants;
  if (!options.compareFile.empty()) {
    variants = comparison(options, warnings);
  } else if (!options.sweep.empty()) {
    variants = sweep(options, warnings);
  } else {
    variants.push_back(variantFrom(options, warnings));
  }
  std::vector<std::string> once;  // most warnings come with every variant
  for (std::string& warning : warnings)
    if (std::ranges::find(once, warning) == once.end()) once.push_back(std::move(warning));
  warnings = std::move(once);
  return variants;
}

}  // namespace vellumic::tools
