#include "tools/tune/PlanSection.h"

#include <cmath>
#include <cstdint>

namespace vellumic::tune {

Section::Section(const toml::table& table, const std::string& source, std::string name)
    : table_(table), source_(source), name_(std::move(name)) {}

void Section::fail(const std::string& key, const std::string& what) const {
  const toml::node* node = table_.get(key);
  const auto line = node ? node->source().begin.line : table_.source().begin.line;
  const std::string field = name_.empty() || key.empty() ? name_ + key : name_ + "." + key;
  // What is missing stands in no line.
  throw PlanError(source_ + (line > 0 ? ":" + std::to_string(line) : "") + ": " +
                  (field.empty() ? what : field + ": " + what));
}

const toml::node* Section::find(const std::string& key) {
  asked_.insert(key);
  return table_.get(key);
}

std::optional<double> Section::number(const std::string& key) {
  const toml::node* node = find(key);
  if (!node) return std::nullopt;
  const auto value = node->value<double>();
  if (!value || node->is_boolean() || !std::isfinite(*value)) fail(key, "write a number");
  return value;
}

std::optional<bool> Section::flag(const std::string& key) {
  const toml::node* node = find(key);
  if (node && !node->is_boolean()) fail(key, "write true or false");
  return node ? node->value<bool>() : std::nullopt;
}

std::string Section::text(const std::string& key) {
  const toml::node* node = find(key);
  if (node && (!node->is_string() || node->value<std::string>()->empty()))
    fail(key, "write a text in quotes");
  return node ? *node->value<std::string>() : "";
}

int Section::whole(const std::string& key, int otherwise, int low, int high) {
  const auto value = number(key);
  if (!value) return otherwise;
  if (*value != std::floor(*value) || *value < low || *value > high)
    fail(key, "write a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  return static_cast<int>(*value);
}

std::vector<int> Section::wholes(const std::string& key, int low, int high) {
  const toml::node* node = find(key);
  std::vector<int> values;
  if (!node) return values;
  const std::string form = "write a list of whole numbers from " + std::to_string(low) + " to " +
                           std::to_string(high) + ", as in [4]";
  const toml::array* list = node->as_array();
  if (!list || list->empty()) fail(key, form);
  for (const toml::node& item : *list) {
    const auto value = item.is_integer() ? item.value<std::int64_t>() : std::nullopt;
    if (!value || *value < low || *value > high) fail(key, form);
    values.push_back(static_cast<int>(*value));
  }
  return values;
}

Section Section::inner(const std::string& key) {
  static const toml::table nothing;
  const toml::node* node = find(key);
  if (node && !node->is_table()) fail(key, "write a table, as in [" + key + "]");
  return {node ? *node->as_table() : nothing, source_, key};
}

std::vector<Section> Section::list(const std::string& key) {
  const toml::node* node = find(key);
  std::vector<Section> sections;
  const std::string path = name_.empty() ? key : name_ + "." + key;
  if (!node) return sections;
  const toml::array* items = node->as_array();
  if (!items) fail(key, "write it as [[" + path + "]]");
  for (const toml::node& item : *items) {
    if (!item.is_table()) fail(key, "write it as [[" + path + "]]");
    sections.emplace_back(*item.as_table(), source_, path);
  }
  return sections;
}

void Section::done() const {
  for (const auto& [key, node] : table_)
    if (!asked_.contains(std::string(key.str()))) fail(std::string(key.str()), "is not known here");
}

}  // namespace vellumic::tune
