#include "tools/tune/Plan.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>

#include "tools/tune/PlanSection.h"

namespace vellumic::tune {
namespace {

void readHeader(Section& root, Plan& plan) {
  const toml::node* header = root.find("header");
  if (!header) return;
  const toml::array* lines = header->as_array();
  if (!lines) root.fail("header", "write a list of texts");
  for (const toml::node& line : *lines) {
    if (!line.is_string()) root.fail("header", "write a list of texts");
    const std::string& words = plan.header.emplace_back(*line.value<std::string>());
    // Behind a line's end it would be no comment any more but a setting.
    if (std::ranges::any_of(words, [](unsigned char c) { return std::iscntrl(c) != 0; }))
      root.fail("header", "write texts of one line, without control characters");
  }
}

// After the settings that are moved.
void readBudget(Section& root, Plan& plan) {
  Section evaluations = root.inner("evaluations");
  plan.budget.global = evaluations.whole("global", plan.budget.global, 0, 100000);
  plan.budget.local = evaluations.whole("local", plan.budget.local, 0, 100000);
  const auto ranges = std::ranges::count(plan.space, false, &Dimension::isSwitch);
  if (const int least = leastGlobal(static_cast<std::size_t>(ranges));
      plan.budget.global > 0 && plan.budget.global < least)
    evaluations.fail("global", "is too few for a global search of " + std::to_string(ranges) +
                                   " ranges; write 0 or at least " + std::to_string(least));
  plan.budget.quick = evaluations.flag("quick").value_or(true);
  evaluations.done();
}

void readWish(Section section, Plan& plan) {
  const std::string name = section.text("figure");
  const auto figure = quality::figureNamed(name);
  if (!figure) section.fail("figure", "no such figure: \"" + name + "\"");
  Wish wish;
  wish.figure = *figure;
  const bool more = quality::info(*figure).moreIsBetter;
  wish.weight = section.number("weight").value_or(0.0);
  if (wish.weight < 0.0) section.fail("weight", "write a number from 0 on");
  wish.cap = section.number("cap");
  const auto least = section.number("at_least"), most = section.number("at_most");
  if (more && most) section.fail("at_most", "more of this figure is better; write at_least");
  if (!more && least) section.fail("at_least", "less of this figure is better; write at_most");
  wish.limit = more ? least : most;
  wish.slackBelowFactory = section.number("below_factory");
  wish.slackBelowInput = section.number("below_input");
  if (wish.slackBelowInput && !quality::info(*figure).input)
    section.fail("below_input", "the microphone has no such figure; leave it out");
  if (wish.weight == 0.0 && !wish.limit && !wish.slackBelowFactory && !wish.slackBelowInput)
    section.fail("", "asks for nothing; add a weight or a limit");
  section.done();
  plan.goal.push_back(wish);
}

void readGoal(Section& root, Plan& plan) {
  for (const Section& section : root.list("goal")) readWish(section, plan);
  if (plan.goal.empty()) root.fail("", "has no goal; add [[goal]] with a figure and a weight");
}

}  // namespace

// Made absolute first: of a file that is not there the standard keeps "a" and "./a" apart.
std::filesystem::path placeOf(const std::string& file) {
  return std::filesystem::weakly_canonical(std::filesystem::absolute(file));
}

RawValues Plan::settings(const Point& point) const {
  RawValues values = measuredWith;
  for (std::size_t n = 0; n < slots.size(); ++n)
    values[index(slots[n])] = static_cast<float>(point[n]);
  return values;
}

Plan parsePlan(const std::string& text, const std::string& source) {
  toml::table table;
  try {
    table = parseToml(text);
  } catch (const TomlError& error) {
    throw PlanError(source + ":" + error.what());
  }
  Plan plan;
  plan.text = text;
  Section root(table, source, "");
  readHeader(root, plan);
  plan.seed = static_cast<std::uint64_t>(root.whole("seed", 1, 1, 1000000));
  plan.worth = root.number("worth").value_or(plan.worth);
  if (!(plan.worth > 0.0)) root.fail("worth", "write a number above 0");
  readSpace(root, plan);
  readBudget(root, plan);
  readFixed(root, plan);
  readGoal(root, plan);
  readMaterial(root, plan);
  root.done();
  return plan;
}

Plan readPlan(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  stream.peek();  // a folder opens, but cannot be read
  if (!stream.is_open() || stream.bad())
    throw PlanError(file.string() + ": cannot be read; check the path and its permissions");
  return parsePlan({std::istreambuf_iterator<char>(stream), {}}, file.string());
}

}  // namespace vellumic::tune
