// What a plan may say.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "parameters/SettingsFile.h"
#include "tests/tools/TunePlan.h"

namespace vellumic::tune {
namespace {

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
    std::string to = line.substr(first + 3, second - first - 3), text = "accepted";
    std::ranges::replace(to, '~', '\n');
    try {
      planWith(line.substr(0, first), to);
    } catch (const PlanError& error) {
      text = error.what();
    }
    EXPECT_TRUE(has(text, line.substr(second + 2)) && text.rfind("plan.toml:", 0) == 0 &&
                !has(text, "\n"))
        << line << ": " << text;
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

}  // namespace
}  // namespace vellumic::tune
