// The tables of a plan, read key by key.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "parameters/TomlText.h"
#include "tools/tune/Plan.h"

namespace vellumic::tune {

// One table of the plan. Every key must be asked for; done() names those that were not. All throw
// PlanError with the file, the line if there is one, and the field. Keeps references to the table
// and the source's name.
class Section {
 public:
  Section(const toml::table& table, const std::string& source, std::string name);

  [[noreturn]] void fail(const std::string& key, const std::string& what) const;
  const toml::node* find(const std::string& key);  // null where the table has none
  std::optional<double> number(const std::string& key);
  std::optional<bool> flag(const std::string& key);
  std::string text(const std::string& key);  // "" where the table has none
  int whole(const std::string& key, int otherwise, int low, int high);
  std::vector<int> wholes(const std::string& key, int low, int high);
  Section inner(const std::string& key);              // an empty one where the table has none
  std::vector<Section> list(const std::string& key);  // [[key]]
  void done() const;

  const toml::table& table() const { return table_; }
  const std::string& source() const { return source_; }

 private:
  const toml::table& table_;
  const std::string& source_;
  std::string name_;
  std::set<std::string> asked_;
};

// Each reads one part of the plan. `root`: the whole file.
void readSpace(Section& root, Plan& plan);
void readFixed(Section& root, Plan& plan);  // after readSpace
void readMaterial(Section& root, Plan& plan);

}  // namespace vellumic::tune
