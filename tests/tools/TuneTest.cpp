// What a plan may say, how its search goes, and the whole tool.
#include <numeric>
#include <set>
#include <thread>

#include "parameters/SettingsFile.h"
#include "tests/tools/RenderFiles.h"
#include "tools/tune/Outcome.h"
#include "tools/tune/Panel.h"
#include "tools/tune/TuneMain.h"

namespace vellumic::tune {
namespace {

using quality::Figure;
using tools::contents, tools::expectParts;

constexpr const char* planText = R"(
header = ["For the test."]
seed = 3
evaluations = { global = 160, local = 60 }
goal = [{ figure = "near_sdr", weight = 1 }]
material = [{ scene = "desk", seeds = [1, 2] }]
voices = { near = "near.wav", far = "far.wav" }
[settings]
"beamformer.enabled" = {}
"echo.update_threshold" = { low = 1e-5, high = 1e-2, scale = "log" }
"noise.gain.floor2" = { low = 0.05, high = 0.9 }
"echo.warmup_blocks" = { low = 0, high = 50 }
"noise.estimator.window_frames" = { choice = [100, 200] }
)";

Plan planWith(const std::string& from, const std::string& to) {
  std::string text = planText;
  return parsePlan(text.replace(text.find(from), from.size(), to), "plan.toml");
}

// What stands in the plan, what in its place (~ ends a line), what the answer names.
constexpr const char* faults =
    R"(echo.update_threshold | echo.update_treshold | did you mean echo.update_threshold
low = 0.05, high = 0.9 | low = 0.9, high = 0.9 | empty range
near_sdr" | loudness" | no such figure
material = | materiel = | names no material
seed = 3 | held_out.material = [{ scene = "desk", seeds = [1] }] | held out
[{ scene = "desk", seeds = [1, 2] }] | [{ scene = "music" }]~held_out.material = [{ scene = "music" }] | same room
[{ scene = "desk", seeds = [1, 2] }] | [{ recording = "a.wav" }]~held_out.material = [{ recording = "./a.wav" }] | held out
[{ scene = "desk", seeds = [1, 2] }] | [{ recording = "a.wav", far = "f.wav" }]~held_out.material = [{ recording = "b.wav", far = "f.wav" }] | f.wav is in the material and held out
voices = { near = "near.wav", far = "far.wav" } | | plan.toml: voices: scenes need voices
seed = 3 | measure_with.noise.gain.floor1 = 1e300 | write a number
"beamformer.enabled" = {} | noise.gain.floor2 = { low = 0.1, high = 0.9 } | twice
global = 160 | global = 5 | at least 8
)";

TEST(Plan, RefusesWhatItCannotTuneInOneLine) {
  std::istringstream lines(faults);
  for (std::string line; std::getline(lines, line);) {
    const auto first = line.find(" | "), second = line.find("| ", first + 2);
    std::string to = line.substr(first + 3, second - first - 3);
    std::ranges::replace(to, '~', '\n');
    const std::string fault = tools::faultOf([&] { planWith(line.substr(0, first), to); });
    expectParts(fault, {line.substr(second + 2)});
    EXPECT_TRUE(fault.starts_with("plan.toml:") && fault.find('\n') == fault.npos) << fault;
  }
}

TEST(Plan, ShippedPlansAndSettingsAreRead) {
  int plans = 0, changed = 0;
  for (const auto& file : std::filesystem::recursive_directory_iterator("settings")) {
    if (file.path().extension() != ".toml") continue;
    RawValues values = factorySettings();
    SettingsWarnings warnings;
    if (file.path().parent_path().filename() == "plans")
      plans += readPlan(file.path()).heldOut.empty() ? 0 : 1;
    else
      applySettingsFile(file.path(), values, warnings);
    changed += values == factorySettings() ? 0 : 1;
    EXPECT_TRUE(warnings.empty()) << file.path();
  }
  EXPECT_TRUE(plans == 4 && changed == 5) << plans << " plans, " << changed << " settings";
}

// Where a plan names no held-out scenes, the tool draws others of the same kinds.
TEST(Plan, HeldOutScenesAreNeverThoseOfTheSearch) {
  const Plan plan = planWith("[1, 2] }", "[1, 1001] }, { scene = \"music\" }");
  ASSERT_EQ(plan.heldOut.size(), 1U);  // no other music
  ASSERT_EQ(plan.heldOut[0].seeds.size(), 2U);
  for (const std::uint64_t seed : plan.heldOut[0].seeds)
    EXPECT_EQ(std::ranges::count(plan.material[0].seeds, seed), 0);
}

quality::Summary heard(std::initializer_list<std::pair<Figure, double>> figures) {
  quality::Summary summary;
  for (const auto& [figure, value] : figures) summary.mean[figure] = value;
  return summary;
}

class TuningRun : public tools::RenderFiles {
 protected:
  double at(const Point& point, const std::string& name) const {
    const auto found = std::ranges::find(plan_.space, name, &Dimension::name);
    return point[static_cast<std::size_t>(found - plan_.space.begin())];
  }
  // Best with the beamformer off, a window of 100 frames, a threshold of 1e-3 and a floor of 0.25;
  // the warm-up does nothing. A quick look is drawn to high floors.
  const PointJudge judge_ = [this](const Point& point, Depth depth) {
    const double floor = at(point, "noise.gain.floor2");
    const double value = -3.0 * at(point, "beamformer.enabled") -
                         2.0 * std::pow(std::log10(at(point, "echo.update_threshold")) + 3.0, 2.0) -
                         0.005 * at(point, "noise.estimator.window_frames") -
                         80.0 * std::pow(floor - 0.25, 2.0) + (depth == Depth::quick ? floor : 0.0);
    return Judgement{value, 0.0, {value}};
  };
  static void quiet(const Progress&) {}
  const Plan plan_ = parsePlan(planText, "plan.toml");
};

TEST_F(TuningRun, FindsAKnownOptimumAndLeavesTheIdleSettingAtTheFactory) {
  Journal journal("", 1, plan_);
  double left = 160 / 4 + 60 + 2 + 4 + 10;  // full evaluations, as far as the plan tells
  const Tuning tuning = tune(plan_, journal, judge_, [&](const Progress& now) {
    left -= journal.entries().back().depth == Depth::quick ? 0.25 : 1.0;
    EXPECT_TRUE(now.left == left || now.done > 100) << now.done;
  });
  EXPECT_FALSE(tuning.stopped);
  EXPECT_EQ(at(tuning.best, "beamformer.enabled"), 0.0);
  EXPECT_NEAR(std::log10(at(tuning.best, "echo.update_threshold")), -3.0, 0.15);
  EXPECT_NEAR(at(tuning.best, "noise.gain.floor2"), 0.25, 0.04);
  EXPECT_EQ(at(tuning.best, "echo.warmup_blocks"), 10.0);
  EXPECT_EQ(at(tuning.best, "noise.estimator.window_frames"), 100.0);
  EXPECT_EQ(tuning.judgement.value, judge_(tuning.best, Depth::full).value);
  // What mattered, most first: the switch is worth 3 points, the threshold 2.
  ASSERT_EQ(tuning.contributions.size(), 4U);
  EXPECT_EQ(plan_.space[tuning.contributions[0].dimension].name, "beamformer.enabled");
  EXPECT_EQ(plan_.space[tuning.contributions[1].dimension].name, "echo.update_threshold");

  EXPECT_GT(std::ranges::count(journal.entries(), Depth::quick, &Journal::Entry::depth), 100);
  EXPECT_EQ(globalShares(120, 9, 4), (std::vector{80, 40}));  // a third one would only draw points
  EXPECT_TRUE(globalShares(19, 9, 2).empty());
}

TEST_F(TuningRun, EndsTheSameAfterBeingKilledAnywhere) {
  Journal whole("", 1, plan_);
  const Tuning once = tune(plan_, whole, judge_, quiet);
  std::size_t fresh = 0;
  for (int left : {1, 5, 40, 60, 1000}) {  // each run dies after so many evaluations
    Journal journal("journal", 7, plan_);
    const PointJudge mortal = [&](const Point& point, Depth depth) {
      return left-- > 0 ? ++fresh, judge_(point, depth) : throw Stopped();
    };
    const Tuning part = tune(plan_, journal, mortal, quiet);
    EXPECT_TRUE(part.stopped == (left < 0) && (part.stopped || part.best == once.best));
    EXPECT_NE(journal.find(part.best, Depth::full), nullptr);  // not by a lucky quick look
    if (part.stopped) std::ofstream("journal", std::ios::app) << "0.5 0.5 | 1";  // cut short
  }
  EXPECT_EQ(fresh, whole.entries().size());  // nothing judged twice
}

TEST_F(TuningRun, PassesFailuresOn) {
  const PointJudge failing = [&](const Point& point, Depth depth) {
    return depth == Depth::full ? judge_(point, depth) : throw std::length_error("disk");
  };
  Journal journal("", 1, plan_);
  EXPECT_THROW(tune(plan_, journal, failing, quiet), std::length_error);
}

TEST_F(TuningRun, JournalsOfOtherRunsAndDamagedOnesAreRefused) {
  const std::string file = "journal";
  const Point point{0, 0, 0.5, 10, 100};
  {
    Journal journal(file, 7, plan_);
    journal.add(point, Depth::quick, {1.0, 0.0, {std::nan("")}});
    journal.add(point, Depth::full, {2.0, 0.0, {std::nan("")}});
  }
  EXPECT_EQ(Journal(file, 7, plan_).find(point, Depth::quick)->value, 1.0);
  EXPECT_EQ(Journal(file, 7, plan_).find(point, Depth::full)->value, 2.0);
  EXPECT_THROW(Journal(file, 8, plan_), std::runtime_error);
  // A head that a kill cut short is written anew; a file without a line's end is no such head.
  EXPECT_TRUE(Journal(text("cut", "vellumic-tune jour"), 7, plan_).entries().empty());
  EXPECT_THROW(Journal(text("notes.txt", "mine"), 7, plan_), std::runtime_error);
  EXPECT_EQ(contents("notes.txt"), "mine");
  for (const std::string line :
       {"0 0 0.5 10 x | 1 0 2 ;", "0.5 0.6 0.7 | 1 0 2 ;", "~ 0 0 0.5 10 50 | 1 ;",
        "0 0 0.5 10 50 | 1 0 2 3 ;", "0 0 1e99 10 50 | 1 0 2 ;"})
    EXPECT_THROW(Journal(text("bad", contents(file) + line + '\n'), 7, plan_), std::runtime_error)
        << line;
}

// The blocks fall elsewhere in each of the four, so that no two renderings score alike.
TEST_F(TuningRun, AFigureIsJudgedOverFourShiftsAndQuicklyOverOne) {
  const tools::WaveData sound{{.sampleRate = 16000, .channels = 1}, tools::softNoise(48000, 1, 5)};
  Matter matter;
  matter.recording = "room.wav";
  wave(matter.recording, sound.format, sound.samples);
  const std::atomic<bool> stop{false};
  const Panel panel({matter}, {}, 2, stop);
  const auto material = quality::recordedMaterial("room", sound, std::nullopt, std::nullopt);
  std::vector<double> values;
  for (int shift = 0; shift < 4; ++shift)
    values.push_back(*material->judge(factorySettings(), shift).figures[Figure::noiseAttenuation]);
  EXPECT_EQ(std::set(values.begin(), values.end()).size(), 4U);
  const quality::Summary full = panel.judge(factorySettings()).at(0),
                         quick = panel.judge(factorySettings(), Depth::quick).at(0);
  EXPECT_NEAR(*full.mean[Figure::noiseAttenuation],
              std::accumulate(values.begin(), values.end(), 0.0) / 4, 1e-3);
  EXPECT_NEAR(*full.worst[Figure::noiseAttenuation], std::ranges::min(values), 1e-3);
  EXPECT_NEAR(*quick.mean[Figure::noiseAttenuation], values[0], 1e-3);
}

TEST(Goal, LimitsHoldInEverySceneAndCapsEndTheReward) {
  const auto value = [](const std::string& wish, std::initializer_list<quality::Summary> scenes,
                        std::initializer_list<quality::Summary> factory) {
    return judge(planWith("\"near_sdr\", weight = 1", wish).goal, scenes, factory).value;
  };
  const auto sdr = [&](double one, double two) {
    const auto scene = [](double db) { return heard({{Figure::nearSdr, db}}); };
    return value("\"near_sdr\", weight = 1, cap = 20, at_least = 12, below_factory = 1",
                 {scene(one), scene(two)}, {scene(10), scene(16)});
  };
  EXPECT_DOUBLE_EQ(sdr(14, 16), 15.0);
  EXPECT_DOUBLE_EQ(sdr(14, 30), 17.0);               // the cap, per scene
  EXPECT_DOUBLE_EQ(sdr(11, 19), 15.0 - limitPrice);  // a limit missed by 1 dB
  EXPECT_DOUBLE_EQ(sdr(16, 14), 15.0 - limitPrice);  // 2 dB below the factory, 1 too many
  const auto slow = heard({{Figure::timeTo20Db, 6.0}});
  EXPECT_DOUBLE_EQ(value("\"time_to_20_db\", weight = 0.5, at_most = 4", {slow}, {slow}),
                   -3.0 - 2.0 * limitPrice);
  // A unit of intelligibility is a hundredth; here the microphone's own is the measure.
  const auto dull = heard({{Figure::stoi, 0.92}, {Figure::stoiIn, 0.95}});
  EXPECT_NEAR(value("\"stoi\", below_input = 1", {dull}, {dull}), -2.0 * limitPrice, 1e-9);
}

// The whole tool on recordings of 5 s.
class TuneTool : public tools::RenderFiles {
 protected:
  // `words` may name other targets.
  tools::ToolRun tuneWith(const std::string& plan, std::string words = "") {
    text("plan.toml", plan);
    for (const std::string target : {"--output run.toml", "--report run.html"})
      if (words.find(target.substr(0, 8)) == std::string::npos) words += ' ' + target;
    const auto main = [this](int count, const char* const* list) {
      return tuneMain(count, list, stop_);
    };
    return tools::captured(main, "plan.toml " + words);
  }
  static std::string planFor(const std::string& seen, const std::string& held, int global = 6) {
    const auto piece = [](const std::string& file) {
      return " = [{ recording = \"" + file + "\", talker = \"" + file + "\" }]\n";
    };
    return "header = [\"For a <test>.\"]\nmaterial" + piece(seen) +
           (held.empty() ? "" : "held_out.material" + piece(held)) +
           "evaluations = { global = " + std::to_string(global) + R"(, local = 4 }
goal = [{ figure = "noise_attenuation", weight = 1 }, { figure = "si_sdr", weight = 0.01 }]
measure_with = { level.enabled = false, beamformer.enabled = false }
settings.noise.gain.floor2 = { low = 0.1, high = 0.9, start = 0.2 })";
  }
  void SetUp() override {
    for (const unsigned n : {1U, 2U, 3U})
      wave(std::to_string(n) + ".wav", {.sampleRate = 16000, .channels = 2},
           tools::softNoise(n == 3 ? 80000 : 72000, 2, n));
  }
  std::atomic<bool> stop_{false};
};

// What is held out may change as it likes without any effect on what is found, and the file that is
// written reads back.
TEST_F(TuneTool, HeldOutMaterialNeverReachesTheSearch) {
  const auto settingsWith = [this](const std::string& held) {
    succeeded(tuneWith(planFor("1.wav", held), "--fresh"));
    return contents("run.toml");
  };
  const std::string one = settingsWith("2.wav"), other = settingsWith("3.wav");
  EXPECT_NE(one, other);
  EXPECT_EQ(one.substr(one.find("Found by")), other.substr(other.find("Found by")));
  RawValues values = factorySettings();
  SettingsWarnings warnings;
  applySettingsText(one, "run.toml", values, warnings);
  EXPECT_LT(value(values, Raw::gainFloor2), 0.2F);  // more noise attenuation was wanted
  expectParts(one, {"noise attenuation, dB +"});    // its reason

  expectParts(settingsWith(""), {"# No material was held out"});
  expectParts(contents("run.html"), {"was held out"});
}

// A search without end, stopped as by Ctrl-C once a few points are judged.
TEST_F(TuneTool, StoppedItWritesTheBestSoFarAndBeginsAnewWhenAsked) {
  const std::string journal = "run.toml.journal", plan = planFor("1.wav", "2.wav");
  std::jthread hand([&](const std::stop_token& ended) {
    while (!ended.stop_requested() && std::ranges::count(contents(journal), '\n') < 6)
      std::this_thread::yield();
    stop_ = true;
  });
  const auto stopped = tuneWith(planFor("1.wav", "2.wav", 100000));
  hand.request_stop();
  hand.join();
  EXPECT_EQ(stopped.exitCode, 130) << stopped.complained;
  expectParts(contents("run.toml"), {"best settings so far", "noise.gain.floor2 = 0.2"});
  EXPECT_EQ(contents("run.html"), "");

  stop_ = false;
  const auto other = tuneWith(plan);
  EXPECT_EQ(other.exitCode, 1);
  expectParts(other.complained, {"--fresh"});
  succeeded(tuneWith(plan, "--fresh"));
  const std::string whole = contents(journal);
  succeeded(tuneWith(plan));  // nothing left to judge
  EXPECT_EQ(contents(journal), whole);
}

// What the plan names is not there or answers none of its wishes; a target is a file of the run or
// no journal; or nothing was judged yet.
TEST_F(TuneTool, WritesNothingWhereItCannotEnd) {
  const auto sounds = [] { return contents("1.wav") + contents("2.wav"); };
  const std::string plan = planFor("1.wav", "2.wav"), before = sounds();
  std::string silent = plan;
  silent.replace(silent.find("si_sdr"), 6, "erle");
  text("notes.txt", "mine");
  const std::string cases[][3] = {{plan, "--output plan.toml", "another"},
                                  {plan, "--report ./2.wav", "another"},
                                  {plan, "--journal run.toml", "another"},
                                  {plan, "--journal notes.txt", "is no journal"},
                                  {planFor("none.wav", "2.wav"), "", "none.wav"},
                                  {silent, "", "erle"},
                                  {plan, "", "nothing was judged"}};
  for (const auto& [given, words, named] : cases) {
    stop_ = named == "nothing was judged";
    const auto run = tuneWith(given, "--fresh " + words);
    EXPECT_EQ(run.exitCode, stop_ ? 130 : 1);
    expectParts(run.complained, {named});
    EXPECT_TRUE(contents("plan.toml") == given && sounds() == before) << words;
    EXPECT_EQ(contents("run.toml") + contents("run.html"), "");
  }
  EXPECT_EQ(contents("notes.txt"), "mine");
}

}  // namespace
}  // namespace vellumic::tune
