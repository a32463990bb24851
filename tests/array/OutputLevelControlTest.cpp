#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "array/OutputLevelControl.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

constexpr float sampleRate = 16000.0F;  // Hz

float decibels(float linear) { return 20.0F * std::log10(linear); }

LevelControlSettings switchedOn() {
  LevelControlSettings settings;
  settings.levelControlEnabled = true;
  return settings;
}

// Peak of the last tenth of a second of a 1 kHz sine of this peak.
float peakAfter(OutputLevelControl& control, float peak, float seconds) {
  const int count = static_cast<int>(seconds * sampleRate);
  float greatest = 0.0F;
  for (int i = 0; i < count; ++i) {
    float output = 0.0F;
    const auto phase = static_cast<float>(i % 16) / 16.0F;
    control.process(peak * std::sin(2.0F * std::numbers::pi_v<float> * phase), output);
    if (i > count - static_cast<int>(sampleRate) / 10)
      greatest = std::max(greatest, std::abs(output));
  }
  return greatest;
}

TEST(OutputLevelControl, DelaysByTheLookAheadAndNeverByNone) {
  const struct {
    float seconds;
    int samples;
  } cases[] = {{0.0F, 1},  {1.0F / sampleRate, 1}, {0.004F, 64}, {1.2F, 19200}, {2.0F, 19200},
               {-1.0F, 1}, {1e30F, 19200},         {-1e30F, 1}};
  for (const auto& [seconds, samples] : cases) {
    OutputLevelControl control;
    LevelControlSettings settings = switchedOn();
    settings.lookAheadTime = seconds;
    settings.levelStage.makeupGain = 1.0F;
    control.apply(settings);
    float output = 0.0F;
    control.process(0.001F, output);
    int delay = 0;
    while (output == 0.0F && ++delay < 20000) control.process(0.0F, output);
    EXPECT_EQ(delay, samples) << seconds;
  }
}

// Noise with jumps of level, so that every branch is taken; bits, not values.
TEST(OutputLevelControl, RunsOfAnyLengthGiveTheSameBits) {
  std::vector<float> input(4000);
  std::mt19937 random(1);
  std::normal_distribution<float> normal;
  for (std::size_t i = 0; i < input.size(); ++i)
    input[i] = normal(random) * (i / 500 % 2 ? 1.0F : 1e-3F);
  LevelControlSettings settings = switchedOn();
  settings.levelStage.releaseTime = settings.levelStage.floorTime = 0.01F;
  for (const auto& [limiter, lookAhead] : {std::pair{true, 0.004F}, {true, 0.0F}, {false, 0.0F}}) {
    settings.limiterEnabled = limiter;
    settings.lookAheadTime = lookAhead;
    settings.lookAheadEnabled = lookAhead > 0.0F;
    OutputLevelControl single, runs;
    single.apply(settings);
    runs.apply(settings);
    std::vector<float> expected(input.size()), output = input;
    for (std::size_t i = 0; i < input.size(); ++i) single.process(input[i], expected[i]);
    const RealtimeGuard guard;
    for (std::size_t at = 0, run = 1; at < output.size(); at += run, run = run * 7 % 301)
      runs.process(std::span(output).subspan(at, std::min(run, output.size() - at)));
    EXPECT_EQ(guard.violations(), 0) << guard.first();
    EXPECT_EQ(output, expected);
    EXPECT_EQ(runs.levelStage.gain, single.levelStage.gain);
  }
}

// Whatever the settings before were, and whatever they left behind.
TEST(OutputLevelControl, BadSettingsAreForgottenWithTheNextGoodOnes) {
  constexpr float odd[] = {0.0F, -1.0F, 1e30F, -1e30F, 1e-40F, -1e-3F, 1e3F, 1e-6F, 3.0F};
  for (const float level : odd)
    for (const float gain : odd)
      for (const float time : odd) {
        OutputLevelControl control;
        LevelControlSettings bad = switchedOn();
        bad.levelStage = {gain, level, time, time, time, true, time, level};
        bad.limiterStage = bad.levelStage;
        bad.lookAheadTime = time;
        const RealtimeGuard guard;
        control.apply(bad);
        peakAfter(control, 0.1F, 0.2F);
        for (const LevelStage* stage : {&control.levelStage, &control.limiterStage}) {
          EXPECT_TRUE(stage->envelope >= 0.0F && stage->envelope <= 1e6F);
          for (const float reduction : {stage->smoothedReduction, stage->reductionFloor})
            EXPECT_TRUE(reduction >= 1.0F && reduction <= 1e12F) << reduction;
        }
        control.apply(switchedOn());
        peakAfter(control, 0.03F, 1.0F);
        const float heard = decibels(peakAfter(control, 0.03F, 0.5F));
        EXPECT_EQ(guard.violations(), 0) << guard.first();
        EXPECT_GT(heard, -40.0F) << gain << " " << level << " " << time;
        EXPECT_LT(heard, -6.0F) << gain << " " << level << " " << time;
      }
}

TEST(OutputLevelControl, StateWithinReachOutlivesSettings) {
  OutputLevelControl control;
  control.apply(switchedOn());
  peakAfter(control, 1.0F, 2.0F);
  peakAfter(control, 0.001F, 0.5F);
  const float gain = control.levelStage.gain;
  control.apply(switchedOn());
  peakAfter(control, 0.001F, 0.01F);
  EXPECT_NEAR(decibels(control.levelStage.gain), decibels(gain), 0.1F);
}

}  // namespace
}  // namespace vellumic
