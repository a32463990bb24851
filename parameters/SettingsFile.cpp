#include "parameters/SettingsFile.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>

#include "parameters/SettingValue.h"
#include "parameters/TomlText.h"

namespace vellumic {
namespace {

// Collects the changes of one text, to be applied once all of it has been found good.
class Changes {
 public:
  explicit Changes(RawValues& values) : target_(values), changed_(values) {}

  // `where` stands before every message: source and line.
  void set(const std::string& where, const std::string& name, const SettingValue& value) {
    const std::string prefix = where + ": " + name + ": ";
    const auto found = findParameter(name);
    if (!found)
      throw SettingsError(prefix + "no such setting; did you mean " + nearestParameterName(name) +
                          "?");
    if (!seen_.insert(found->parameter->slot).second)
      throw SettingsError(prefix + "given twice, linear and in decibels; remove one of them");
    const SettingConversion converted = convertSetting(*found, value);
    if (!converted.error.empty()) throw SettingsError(prefix + converted.error);
    if (!converted.warning.empty()) warnings_.push_back(onOneLine(prefix + converted.warning));
    changed_[index(found->parameter->slot)] = converted.stored;
  }

  void apply(SettingsWarnings& warnings) {
    target_ = changed_;
    warnings.insert(warnings.end(), warnings_.begin(), warnings_.end());
  }

 private:
  RawValues& target_;
  RawValues changed_;
  std::set<Raw> seen_;
  SettingsWarnings warnings_;
};

std::string at(std::string_view source, const toml::source_region& region) {
  return std::string(source) + ":" + std::to_string(region.begin.line);
}

SettingValue settingValue(const toml::node& node) {
  if (const auto* toggle = node.as_boolean()) return toggle->get();
  if (const auto* whole = node.as_integer()) return static_cast<double>(whole->get());
  if (const auto* number = node.as_floating_point()) return number->get();
  if (const auto* text = node.as_string()) return text->get();
  return OtherValue{node.is_array() ? "a list" : "a date or time"};
}

void walk(const toml::table& table, const std::string& prefix, std::string_view source,
          Changes& changes) {
  for (const auto& [key, node] : table) {
    const std::string name = prefix + std::string(key.str());
    const toml::table* inner = node.as_table();
    const std::string where = at(source, inner ? inner->source() : key.source());
    if (inner != nullptr && !inner->empty() && !findParameter(name))
      walk(*inner, name + ".", source, changes);
    else if (inner != nullptr && isParameterGroup(name))
      continue;  // an empty table
    else
      changes.set(where, name, inner ? SettingValue(OtherValue{"a table"}) : settingValue(node));
  }
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isControl(char c) { return (c >= 0 && c < 32) || c == 127; }

std::string contents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  stream.peek();  // a folder opens, but cannot be read
  if (!stream.is_open() || stream.bad())
    throw SettingsError(file.string() + ": cannot be read; check the path and its permissions");
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

std::string onOneLine(std::string text) {
  constexpr std::size_t longest = 1000, kept = 400;  // at each end
  if (text.size() > longest) text.replace(kept, text.size() - 2 * kept, " ... ");
  std::ranges::replace_if(text, isControl, '?');
  return text;
}

void applySettingsText(std::string_view text, std::string_view source, RawValues& values,
                       SettingsWarnings& warnings) {
  Changes changes(values);
  try {
    walk(parseToml(text), "", source, changes);
  } catch (const TomlError& error) {
    throw SettingsError(std::string(source) + ":" + error.what());
  }
  changes.apply(warnings);
}

void applySettingsFile(const std::filesystem::path& file, RawValues& values,
                       SettingsWarnings& warnings) {
  applySettingsText(contents(file), file.string(), values, warnings);
}

void applyAssignment(std::string_view assignment, RawValues& values, SettingsWarnings& warnings) {
  const std::string where = "--set " + std::string(assignment);
  const auto equals = assignment.find('=');
  if (equals == std::string_view::npos || trimmed(assignment.substr(0, equals)).empty() ||
      trimmed(assignment.substr(equals + 1)).empty())
    throw SettingsError(where + ": needs the form NAME=VALUE");
  Changes changes(values);
  changes.set(where, std::string(trimmed(assignment.substr(0, equals))),
              parseSetting(trimmed(assignment.substr(equals + 1))));
  changes.apply(warnings);
}

RawValues readRawFile(const std::filesystem::path& file) {
  const std::string bytes = contents(file);
  RawValues values{};
  if (bytes.size() != sizeof(values))
    throw SettingsError(file.string() + ": " + std::to_string(bytes.size()) +
                        " bytes; a raw parameter file has exactly " +
                        std::to_string(sizeof(values)) + ", 1365 little-endian floats");
  for (std::size_t slot = 0; slot < values.size(); ++slot) {
    std::uint32_t bits = 0;
    for (std::size_t byte = 4; byte-- > 0;)
      bits = bits << 8U | static_cast<unsigned char>(bytes[4 * slot + byte]);
    values[slot] = std::bit_cast<float>(bits);
  }
  return values;
}

}  // namespace vellumic
