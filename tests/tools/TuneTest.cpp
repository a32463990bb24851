#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "parameters/SettingsFile.h"
#include "tests/tools/RenderFiles.h"
#include "tools/quality/SoundFiles.h"
#include "tools/tune/Outcome.h"
#include "tools/tune/Panel.h"
#include "tools/tune/TuneMain.h"

namespace vellumic::tune {
namespace {

using quality::Figure;
using quality::Signal;

constexpr const char* planText = R"(
header = ["For the test."]
seed = 3
evaluations = { global = 160, local = 60 }
[settings]
"beamformer.enabled" = {}
"echo.update_threshold" = { low = 1e-5, high = 1e-2, scale = "log" }
"noise.gain.floor2" = { low = 0.05, high = 0.9 }
"echo.warmup_blocks" = { low = 0, high = 50 }
"noise.estimator.window_frames" = { choice = [100, 200] }
[[goal]]
figure = "near_sdr"
weight = 1
[[material]]
scene = "desk"
seeds = [1, 2]
[voices]
near = "near.wav"
far = "far.wav"
)";

std::size_t dimension(const Plan& plan, const std::string& name) {
  return static_cast<std::size_t>(std::ranges::find(plan.space, name, &Dimension::name) -
                                  plan.space.begin());
}

// Best with the beamformer off, a window of 100 frames, a threshold of 1e-3 and a floor of 0.25;
// the warm-up does nothing.
Judgement synthetic(const Plan& plan, const Point& point) {
  Judgement judgement;
  const auto at = [&](const std::string& name) { return point[dimension(plan, name)]; };
  judgement.value = -3.0 * at("beamformer.enabled") -
                    2.0 * std::pow(std::log10(at("echo.update_threshold")) + 3.0, 2.0) -
                    0.005 * at("noise.estimator.window_frames") -
                    80.0 * std::pow(at("noise.gain.floor2") - 0.25, 2.0);
  judgement.figures = {judgement.value};
  return judgement;
}

class TuningRun : public tools::RenderFiles {
 protected:
  const Plan plan_ = parsePlan(planText, "plan.toml");
  const PointJudge judge_ = [this](const Point& point) { return synthetic(plan_, point); };
  static void quiet(int, int, double) {}
};

TEST_F(TuningRun, FindsAKnownOptimumAndLeavesTheIdleSettingAtTheFactory) {
  Journal journal("", 1, plan_);
  const Tuning tuning = tune(plan_, journal, judge_, quiet);
  EXPECT_FALSE(tuning.stopped);
  EXPECT_EQ(tuning.best[dimension(plan_, "beamformer.enabled")], 0.0);
  EXPECT_NEAR(std::log10(tuning.best[dimension(plan_, "echo.update_threshold")]), -3.0, 0.15);
  EXPECT_NEAR(tuning.best[dimension(plan_, "noise.gain.floor2")], 0.25, 0.04);
  EXPECT_EQ(tuning.best[dimension(plan_, "echo.warmup_blocks")], 10.0);
  EXPECT_EQ(tuning.best[dimension(plan_, "noise.estimator.window_frames")], 100.0);
  // What mattered, most first: the switch is worth 3 points, the threshold 2, then window and
  // floor.
  ASSERT_EQ(tuning.contributions.size(), 4U);
  EXPECT_EQ(plan_.space[tuning.contributions[0].dimension].name, "beamformer.enabled");
  EXPECT_EQ(plan_.space[tuning.contributions[1].dimension].name, "echo.update_threshold");
}

TEST_F(TuningRun, EndsTheSameAfterBeingKilledAnywhere) {
  Journal whole("", 1, plan_);
  const Tuning once = tune(plan_, whole, judge_, quiet);
  const std::string file = path("journal");
  int fresh = 0;
  for (const int calls : {1, 5, 40, 60, 1000}) {  // each run dies after so many evaluations
    Journal journal(file, 7, plan_);
    int left = calls;
    const Tuning part = tune(
        plan_, journal,
        [&](const Point& point) {
          if (left-- <= 0) throw Stopped();
          ++fresh;
          return judge_(point);
        },
        quiet);
    EXPECT_EQ(part.stopped, calls < 1000);
    if (part.stopped) {
      // The kill cut a line short.
      std::ofstream(file, std::ios::app) << "0.5 0.5 | 1";
      continue;
    }
    EXPECT_EQ(part.best, once.best);
    EXPECT_EQ(part.judgement.value, once.judgement.value);
  }
  EXPECT_EQ(static_cast<std::size_t>(fresh), whole.entries().size());  // nothing judged twice
}

TEST_F(TuningRun, JournalsOfOtherRunsAndDamagedOnesAreRefused) {
  const std::string file = path("journal");
  { Journal(file, 7, plan_).add({0, 0, 0.5, 10, 100}, {1.0, 0.0, {std::nan("")}}); }
  EXPECT_EQ(Journal(file, 7, plan_).entries().size(), 1U);
  EXPECT_THROW(Journal(file, 8, plan_), std::runtime_error);
  const auto whole = std::filesystem::file_size(file);
  for (const char* line :
       {"0 0 0.5 10 x | 1 0 2 ;", "0.5 0.6 0.7 | 1 0 2 ;", "0 0 0.5 10 50 | 1 0 ;",
        "0 0 0.5 10 50 | 1 ;", "0 0 0.5 10 50 | 1 0 2 3 ;", "0 0 nan 10 50 | 1 0 2 ;",
        "0 0 1e99 10 50 | 1 0 2 ;", ";"}) {
    std::ofstream(file, std::ios::app) << line << '\n';
    EXPECT_THROW(Journal(file, 7, plan_), std::runtime_error) << line;
    std::filesystem::resize_file(file, whole);
  }
  EXPECT_EQ(Journal(file, 7, plan_).entries().size(), 1U);
}

TEST(Goal, LimitsHoldInEverySceneAndCapsEndTheReward) {
  Wish wish;
  wish.weight = 1.0;
  wish.cap = 20.0;
  wish.limit = 12.0;
  wish.slackBelowFactory = 1.0;
  const auto scene = [](double sdr) {
    quality::Summary summary;
    summary.mean[Figure::nearSdr] = sdr;
    return summary;
  };
  const auto value = [&](double one, double two) {
    return judge({wish}, {scene(one), scene(two)}, {scene(10), scene(16)}).value;
  };
  EXPECT_DOUBLE_EQ(value(14, 16), 15.0);
  EXPECT_DOUBLE_EQ(value(14, 30), 17.0);               // the cap, per scene
  EXPECT_DOUBLE_EQ(value(11, 19), 15.0 - limitPrice);  // a limit missed by 1 dB
  EXPECT_DOUBLE_EQ(value(16, 14), 15.0 - limitPrice);  // 2 dB below the factory, 1 too many
  Wish time;
  time.figure = Figure::timeTo20Db;
  time.weight = 0.5;
  time.limit = 4.0;
  quality::Summary slow;
  slow.mean[Figure::timeTo20Db] = 6.0;
  EXPECT_DOUBLE_EQ(judge({time}, {slow}, {slow}).value, -3.0 - 2.0 * limitPrice);
}

TEST(Plan, RefusesWhatItCannotTuneInOneLine) {
  const auto complaint = [](const std::string& from, const std::string& to) {
    std::string text = planText;
    const auto at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
    try {
      parsePlan(text, "plan.toml");
    } catch (const PlanError& error) {
      return std::string(error.what());
    }
    return "accepted: " + to;
  };
  struct Case {
    std::string from, to, named;
  };
  for (const Case& c : std::vector<Case>{
           {"echo.update_threshold", "echo.update_treshold", "did you mean echo.update_threshold"},
           {"low = 0.05, high = 0.9", "low = 0.9, high = 0.9", "empty range"},
           {"low = 0.05, high = 0.9", "low = 0.05, high = 90", "sensible range"},
           {"low = 0.05, high = 0.9", "high = 0.9", "needs low and high"},
           {"low = 1e-5", "low = 0", "above 0"},
           {"scale = \"log\"", "scale = \"cubic\"", "\"log\" or \"linear\""},
           {"scale = \"log\"", "sclae = \"log\"", "is not known here"},
           {"low = 0, high = 50", "low = 0, high = \"x\"", "write a number"},
           {"figure = \"near_sdr\"", "figure = \"loudness\"", "no such figure"},
           {"figure = \"near_sdr\"", "figure = \"near_sdr\"\nat_most = 3", "write at_least"},
           {"[[goal]]", "[[gaol]]", "goal"},
           {"[[material]]", "[[materiel]]", "material"},
           {"scene = \"desk\"", "scene = \"dusk\"", "no such scene"},
           {"scene = \"desk\"", "scene = \"desk\"\nrecording = \"a.wav\"", "either"},
           {"seeds = [1, 2]", "seeds = []", "list of whole numbers"},
           {"seeds = [1, 2]", "seeds = [1]\n[[held_out.material]]\nscene = \"desk\"\nseeds = [1]",
            "held out"},
           {"scene = \"desk\"", "scene = \"music\"\n[[held_out.material]]\nscene = \"music\"",
            "same room"},
           {"scene = \"desk\"\nseeds = [1, 2]",
            "recording = \"a.wav\"\n[[held_out.material]]\nrecording = \"./a.wav\"", "held out"},
           {"near = \"near.wav\"\nfar = \"far.wav\"", "", "need voices"},
           {"low = 0, high = 50", "choice = [20, 10]", "the lower one first"},
           {"low = 0, high = 50", "choice = [0, 5]", "the factory value"},
           {"seed = 3", "seed = ", "not valid TOML"},
           {"seed = 3", "seed = 3\nworth = 0", "above 0"},
           {"low = 0, high = 50", "low = 0.5, high = 50", "whole numbers"},
           {"choice = [100, 200]", "choice = [200, 999999]", "sensible range"},
           {"weight = 1", "weight = 0", "asks for nothing"},
           {"[settings]", "[measure_with]\n\"noise.gain.floor1\" = inf\n[settings]",
            "write a number"},
           {"[settings]", "[measure_with]\n\"noise.gain.floor1\" = 1e300\n[settings]",
            "write a number"},
           {"[settings]", "[measure_with]\n\"noise.gain.floor2\" = 0.3\n[settings]", "take it out"},
           {"[settings]", "[settings]\nnoise.gain.floor2 = { low = 0.1, high = 0.9 }", "twice"},
           {"For the test.", "For\\nbeamformer.enabled = true", "of one line"},
           {"global = 160", "global = 0", "whole number"}}) {
    const std::string text = complaint(c.from, c.to);
    EXPECT_NE(text.find(c.named), std::string::npos) << text;
    EXPECT_EQ(text.rfind("plan.toml:", 0), 0U) << text;
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
  }
}

// As settings files write them.
TEST(Plan, NamesNeedNoQuotes) {
  std::string bare = planText;
  for (const Dimension& d : parsePlan(planText, "plan.toml").space)
    bare.replace(bare.find('"' + d.name), d.name.size() + 2, d.name);
  bare += "[measure_with]\nlevel.enabled = false\n";
  const Plan plan = parsePlan(bare, "plan.toml"), quoted = parsePlan(planText, "plan.toml");
  EXPECT_EQ(plan.slots, quoted.slots);
  EXPECT_EQ(value(plan.measuredWith, Raw::levelControl), 0.0F);
}

TEST(Plan, RoundedPointsStayInTheirRange) {
  const Space space{{.name = "a", .low = 0.9, .high = 0.9995, .factory = 0.99},
                    {.name = "b", .integer = true, .low = 1, .high = 3, .factory = 7}};
  EXPECT_EQ(rounded(space, {0.9995, 3.4}), (Point{0.9995, 3.0}));
  EXPECT_EQ(rounded(space, {0.99, 7}), (Point{0.99, 7.0}));
}

// Those that are shipped.
TEST(Plan, ShippedPlansAndSettingsAreRead) {
  int count = 0;
  for (const auto& file : std::filesystem::recursive_directory_iterator("settings")) {
    if (file.path().extension() != ".toml") continue;
    ++count;
    if (file.path().parent_path().filename() == "plans") {
      EXPECT_FALSE(readPlan(file.path()).heldOut.empty()) << file.path();
      continue;
    }
    RawValues values = factorySettings();
    SettingsWarnings warnings;
    EXPECT_NO_THROW(applySettingsFile(file.path(), values, warnings)) << file.path();
    EXPECT_TRUE(warnings.empty()) << file.path();
    EXPECT_EQ(values == factorySettings(), file.path().filename() == "factory.toml") << file.path();
  }
  EXPECT_GE(count, 10);
}

// Where a plan names no held-out scenes, the tool draws others of the same kinds.
TEST(Plan, HeldOutScenesAreNeverThoseOfTheSearch) {
  std::string text = planText;
  text.replace(text.find("[1, 2]"), 6, "[1, 1001]\n[[material]]\nscene = \"music\"");
  const Plan plan = parsePlan(text, "plan.toml");
  ASSERT_EQ(plan.heldOut.size(), 1U);  // no other music
  ASSERT_EQ(plan.heldOut[0].seeds.size(), 2U);
  for (const std::uint64_t seed : plan.heldOut[0].seeds)
    EXPECT_EQ(std::ranges::count(plan.material[0].seeds, seed), 0);
}

TEST(Figures, WorstPointsAwayFromBetter) {
  for (const auto& [figure, worst] : {std::pair{Figure::nearSdr, 2.0}, {Figure::timeTo20Db, 9.0}}) {
    std::vector<quality::Figures> scores(4);
    scores[0][figure] = 4.0;
    scores[1][figure] = 9.0;
    scores[3][figure] = 2.0;  // the third has none
    const quality::Summary summary = quality::summarise(scores);
    EXPECT_EQ(summary.mean[figure], 5.0);
    EXPECT_EQ(summary.worst[figure], worst);
    EXPECT_FALSE(summary.mean[Figure::stoi]);
  }
}

// The blocks fall elsewhere in each of the four, so that no two renderings score alike.
TEST_F(TuningRun, AFigureIsJudgedOverFourShifts) {
  const tools::WaveData sound{{.sampleRate = 16000, .channels = 1}, tools::softNoise(48000, 1, 5)};
  Matter matter;
  matter.recording = wave("room.wav", sound.format, sound.samples);
  const std::atomic<bool> stop{false};
  const Panel panel({matter}, {}, 2, stop);
  const quality::Summary judged = panel.judge(factorySettings()).at(0);
  const auto material = quality::recordedMaterial(
      "room", quality::waveOf(quality::readChannels(matter.recording)), std::nullopt, std::nullopt);
  std::set<double> values;
  double sum = 0.0;
  for (int shift = 0; shift < 4; ++shift) {
    const auto score = material->judge(factorySettings(), shift);
    values.insert(score.figures[Figure::noiseAttenuation].value());
    sum += score.figures[Figure::noiseAttenuation].value();
  }
  EXPECT_EQ(values.size(), 4U);
  EXPECT_NEAR(judged.mean[Figure::noiseAttenuation].value(), sum / 4, 1e-9);
  EXPECT_EQ(judged.worst[Figure::noiseAttenuation], *values.begin());
}

// The whole tool on two recordings of 3 s: the one held out may change as it likes without any
// effect on what is found, and the file that is written reads back.
class TuneTool : public tools::RenderFiles {
 protected:
  struct Run {
    int exitCode;
    std::string settings, page, complained;
  };
  // `more` may name other targets.
  Run tuneWith(const std::string& plan, const std::string& name,
               const std::vector<std::string>& more = {}) {
    const std::string output = path(name + ".toml"), report = path(name + ".html");
    const std::string planFile = text(name + "-plan.toml", plan);
    std::vector<const char*> arguments{"vellumic-tune", planFile.c_str()};
    if (std::ranges::find(more, "--output") == more.end())
      arguments.insert(arguments.end(), {"--output", output.c_str()});
    if (std::ranges::find(more, "--report") == more.end())
      arguments.insert(arguments.end(), {"--report", report.c_str()});
    for (const std::string& argument : more) arguments.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int code = tuneMain(static_cast<int>(arguments.size()), arguments.data(), stop_);
    testing::internal::GetCapturedStdout();
    const auto contents = [](const std::string& file) {
      std::ifstream stream(file);
      return std::string{std::istreambuf_iterator<char>(stream), {}};
    };
    return {code, contents(output), contents(report), testing::internal::GetCapturedStderr()};
  }
  std::string recording(const std::string& name, unsigned seed) {
    return wave(name, {.sampleRate = 16000, .channels = 2}, tools::softNoise(64000, 2, seed));
  }
  std::string planFor(const std::string& seen, const std::string& heldOut) {
    return "evaluations = { global = 6, local = 4 }\n[settings]\n"
           "\"noise.gain.floor2\" = { low = 0.1, high = 0.9 }\n"
           "[measure_with]\n\"level.enabled\" = false\n\"beamformer.enabled\" = false\n"
           "[[goal]]\nfigure = \"noise_attenuation\"\nweight = 1\n"
           "[[material]]\nrecording = \"" +
           seen +
           "\"\n"
           "[[held_out.material]]\nrecording = \"" +
           heldOut + "\"\n";
  }
  std::atomic<bool> stop_{false};
};

TEST_F(TuneTool, HeldOutMaterialNeverReachesTheSearch) {
  const std::string seen = recording("seen.wav", 1);
  const Run one = tuneWith(planFor(seen, recording("one.wav", 2)), "one");
  ASSERT_EQ(one.exitCode, 0) << one.complained;
  Signal burst(48000);
  for (std::size_t n = 0; n < burst.size(); n += 7) burst[n] = 0.5F;
  const Run two =
      tuneWith(planFor(seen, wave("two.wav", {.sampleRate = 16000, .channels = 1}, burst)), "two");
  ASSERT_EQ(two.exitCode, 0) << two.complained;
  const auto lines = [](const std::string& settings) {  // without what was seen on held-out scenes
    return settings.substr(settings.find("Found by"));
  };
  EXPECT_EQ(lines(one.settings), lines(two.settings));
  EXPECT_NE(one.page, two.page);

  RawValues values = factorySettings();
  SettingsWarnings warnings;
  applySettingsText(one.settings, "one.toml", values, warnings);
  EXPECT_LT(value(values, Raw::gainFloor2), 0.2F);  // more noise attenuation was wanted
  EXPECT_NE(one.settings.find("noise attenuation, dB"), std::string::npos);  // its reason
}

// Nor does --fresh delete what is no journal.
TEST_F(TuneTool, NeverWritesOverAFileOfTheRun) {
  const std::string seen = recording("seen.wav", 1), held = recording("held.wav", 2);
  const auto bytes = [](const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(stream), {}};
  };
  const std::string plan = planFor(seen, held), before = bytes(seen) + bytes(held);
  for (const std::vector<std::string>& more : std::vector<std::vector<std::string>>{
           {"--output", path("run-plan.toml")},
           {"--output", path("./run.html")},
           {"--report", seen},
           {"--report", path("./held.wav")},
           {"--journal", path("run.toml")},
           {"--fresh", "--journal", text("notes.txt", "mine\n")}}) {
    const Run run = tuneWith(plan, "run", more);
    EXPECT_EQ(run.exitCode, 1) << more[1];
    EXPECT_NE(run.complained.find("another"), std::string::npos) << run.complained;
    EXPECT_EQ(bytes(path("run-plan.toml")), plan);
    EXPECT_EQ(bytes(seen) + bytes(held), before);
    EXPECT_TRUE(run.settings.empty() && run.page.empty());
  }
  EXPECT_EQ(bytes(path("notes.txt")), "mine\n");
}

// The plan is whole; what it names is not there, or nothing was judged yet.
TEST_F(TuneTool, WritesNothingWhereItCannotEnd) {
  const std::string seen = recording("seen.wav", 1), held = recording("held.wav", 2);
  const Run missing = tuneWith(planFor(path("none.wav"), seen), "bad");
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_NE(missing.complained.find("none.wav"), std::string::npos) << missing.complained;
  EXPECT_TRUE(missing.settings.empty());
  std::string silent = planFor(seen, held);
  silent.replace(silent.find("noise_attenuation"), 17, "near_sdr");
  const Run unanswered = tuneWith(silent, "silent");
  EXPECT_EQ(unanswered.exitCode, 1);
  EXPECT_NE(unanswered.complained.find("near_sdr"), std::string::npos) << unanswered.complained;
  EXPECT_TRUE(unanswered.settings.empty());
  stop_ = true;
  const Run stopped = tuneWith(planFor(seen, held), "run");
  EXPECT_EQ(stopped.exitCode, 130);
  EXPECT_TRUE(stopped.settings.empty());
}

}  // namespace
}  // namespace vellumic::tune
