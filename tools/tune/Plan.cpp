#include "tools/tune/Plan.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>

#include "parameters/SettingValue.h"
#include "parameters/SettingsFile.h"
#include "parameters/TomlText.h"
#include "tools/quality/SceneCatalogue.h"

namespace vellumic::tune {
namespace {

// One table of the plan. Every key must be asked for; done() names those that were not.
class Section {
 public:
  Section(const toml::table& table, const std::string& source, std::string name)
      : table_(table), source_(source), name_(std::move(name)) {}

  [[noreturn]] void fail(const std::string& key, const std::string& what) const {
    const toml::node* node = table_.get(key);
    const auto line = node ? node->source().begin.line : table_.source().begin.line;
    const std::string field = name_.empty() || key.empty() ? name_ + key : name_ + "." + key;
    throw PlanError(source_ + ":" + std::to_string(line) + ": " +
                    (field.empty() ? what : field + ": " + what));
  }
  const toml::node* find(const std::string& key) {
    asked_.insert(key);
    return table_.get(key);
  }
  std::optional<double> number(const std::string& key) {
    const toml::node* node = find(key);
    if (!node) return std::nullopt;
    const auto value = node->value<double>();
    if (!value || node->is_boolean() || !std::isfinite(*value)) fail(key, "write a number");
    return value;
  }
  std::optional<bool> flag(const std::string& key) {
    const toml::node* node = find(key);
    if (node && !node->is_boolean()) fail(key, "write true or false");
    return node ? node->value<bool>() : std::nullopt;
  }
  std::string text(const std::string& key) {
    const toml::node* node = find(key);
    if (node && (!node->is_string() || node->value<std::string>()->empty()))
      fail(key, "write a text in quotes");
    return node ? *node->value<std::string>() : "";
  }
  int whole(const std::string& key, int otherwise, int low, int high) {
    const auto value = number(key);
    if (!value) return otherwise;
    if (*value != std::floor(*value) || *value < low || *value > high)
      fail(key, "write a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return static_cast<int>(*value);
  }
  std::vector<int> wholes(const std::string& key, int low, int high) {
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
  Section inner(const std::string& key) {
    static const toml::table nothing;
    const toml::node* node = find(key);
    if (node && !node->is_table()) fail(key, "write a table, as in [" + key + "]");
    return {node ? *node->as_table() : nothing, source_, key};
  }
  std::vector<Section> list(const std::string& key) {
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
  void done() const {
    for (const auto& [key, node] : table_)
      if (!asked_.contains(std::string(key.str())))
        fail(std::string(key.str()), "is not known here");
  }
  const toml::table& table() const { return table_; }

 private:
  const toml::table& table_;
  std::string source_, name_;
  std::set<std::string> asked_;
};

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

void readSpace(Section& settings, const std::string& source, Plan& plan) {
  int switches = 0;
  for (const auto& [name, node] : namedSettings(settings.table())) {
    const Parameter& parameter = parameterNamed(settings, name);
    if (!node->is_table()) settings.fail(name, "write a table: { low = .., high = .. }");
    if (!plan.slots.empty() && plan.slots.back() == parameter.slot)
      settings.fail(name, "stands here twice; take one out");
    Section section(*node->as_table(), source, "settings." + name);
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

Matter readMatter(Section section) {
  Matter matter;
  matter.scene = section.text("scene");
  matter.recording = section.text("recording");
  matter.far = section.text("far");
  matter.talker = section.text("talker");
  const auto seeds = section.wholes("seeds", 1, 1000000);
  matter.microphones = section.wholes("microphones", 1, 8);
  section.done();
  if (matter.scene.empty() == matter.recording.empty())
    section.fail("", "needs either scene = \"name\" or recording = \"microphones.wav\"");
  if (!matter.scene.empty()) {
    if (!quality::sceneNamed(matter.scene, 1, 1))
      section.fail("scene", "no such scene; see `vellumic-quality list`");
    if (!matter.far.empty() || !matter.talker.empty())
      section.fail("scene", "a scene brings its own far end and talker; leave far and talker out");
    if (matter.microphones.empty()) matter.microphones = {4};
    matter.seeds.assign(seeds.begin(), seeds.end());
    if (seeds.empty()) matter.seeds = {1};
  } else if (!seeds.empty() || !matter.microphones.empty()) {
    section.fail("recording", "has neither seeds nor microphones; leave them out");
  }
  return matter;
}

// A scene is another one for another seed only where its kind is drawn from it; a standard scene
// keeps its room and places.
bool isDrawn(const Matter& matter) {
  return std::ranges::find(quality::sceneKinds(), matter.scene) != quality::sceneKinds().end();
}

// Where the plan names none: the same kinds of scenes, other seeds.
std::vector<Matter> otherSeeds(const std::vector<Matter>& material) {
  std::uint64_t highest = 0;
  for (const Matter& matter : material)
    for (const std::uint64_t seed : matter.seeds) highest = std::max(highest, seed);
  const std::uint64_t further = (highest / 1000 + 1) * 1000;
  std::vector<Matter> held;
  for (Matter matter : material) {
    if (!isDrawn(matter)) continue;
    for (std::uint64_t& seed : matter.seeds) seed += further;
    held.push_back(matter);
  }
  return held;
}

void keepApart(const Section& section, const Plan& plan) {
  for (const Matter& held : plan.heldOut)
    for (const Matter& seen : plan.material) {
      if (!held.recording.empty() && !seen.recording.empty() &&
          placeOf(held.recording) == placeOf(seen.recording))
        section.fail("", held.recording + " is in the material and held out; take it out of one");
      if (held.scene.empty() || held.scene != seen.scene) continue;
      if (!isDrawn(held))
        section.fail("", "scene " + held.scene +
                             " is the same room for every seed; take it out of the material or "
                             "of what is held out");
      for (const std::uint64_t seed : held.seeds)
        if (std::ranges::find(seen.seeds, seed) != seen.seeds.end())
          section.fail("", "scene " + held.scene + " with seed " + std::to_string(seed) +
                               " is in the material and held out; take it out of one");
    }
}

void readMaterial(Section& root, Plan& plan) {
  for (const Section& section : root.list("material")) plan.material.push_back(readMatter(section));
  if (plan.material.empty())
    root.fail("", "names no material; add [[material]] with a scene or a recording");
  Section voices = root.inner("voices"), held = root.inner("held_out");
  plan.voices = {voices.text("near"), voices.text("far")};
  plan.heldOutVoices = {held.text("near"), held.text("far")};
  if (plan.heldOutVoices.nearFile.empty()) plan.heldOutVoices.nearFile = plan.voices.nearFile;
  if (plan.heldOutVoices.farFile.empty()) plan.heldOutVoices.farFile = plan.voices.farFile;
  for (const Section& section : held.list("material")) plan.heldOut.push_back(readMatter(section));
  if (plan.heldOut.empty()) plan.heldOut = otherSeeds(plan.material);
  const auto isScene = [](const Matter& matter) { return !matter.scene.empty(); };
  if ((std::ranges::any_of(plan.material, isScene) || std::ranges::any_of(plan.heldOut, isScene)) &&
      (plan.voices.nearFile.empty() || plan.voices.farFile.empty()))
    voices.fail("", "scenes need voices: add [voices] with near and far, WAV files at 16 kHz");
  voices.done();
  held.done();
  keepApart(held, plan);
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
  if (const toml::node* header = root.find("header")) {
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
  plan.seed = static_cast<std::uint64_t>(root.whole("seed", 1, 1, 1000000));
  plan.worth = root.number("worth").value_or(plan.worth);
  if (!(plan.worth > 0.0)) root.fail("worth", "write a number above 0");
  Section evaluations = root.inner("evaluations");
  plan.budget.global = evaluations.whole("global", plan.budget.global, 1, 100000);
  plan.budget.local = evaluations.whole("local", plan.budget.local, 0, 100000);
  evaluations.done();
  Section settings = root.inner("settings");
  readSpace(settings, source, plan);
  readFixed(root, plan);
  for (const Section& section : root.list("goal")) readWish(section, plan);
  if (plan.goal.empty()) root.fail("", "has no goal; add [[goal]] with a figure and a weight");
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
