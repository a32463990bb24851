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
constexpr float meanOfSine = 2.0F / std::numbers::pi_v<float>;

float decibels(float linear) { return 20.0F * std::log10(linear); }
float linear(float decibels) { return std::pow(10.0F, decibels / 20.0F); }

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

TEST(OutputLevelControl, SettlesWhereTheFormulasSay) {
  // Threshold -46 dB: below it the full 30 dB, above it the level of -16 dB.
  const float cases[][2] = {{-70, -40}, {-50, -20}, {-40, -16}, {-16, -16}, {0, -16}};
  for (const auto& [input, expected] : cases) {
    OutputLevelControl control;
    control.apply(switchedOn());
    EXPECT_NEAR(decibels(peakAfter(control, linear(input), 3.0F)), expected, 0.3F) << input;
  }
}

TEST(OutputLevelControl, APauseDoesNotPullTheNoiseUp) {
  LevelControlSettings settings = switchedOn();
  settings.levelStage.releaseTime = 0.1F;
  for (const bool held : {true, false}) {
    settings.levelStage.floorEnabled = held;
    OutputLevelControl control;
    control.apply(settings);
    peakAfter(control, 0.5F, 2.0F);
    peakAfter(control, 1e-4F, 2.0F);
    const float gain = decibels(control.levelStage.gain);
    if (held) {
      EXPECT_LT(gain, -3.0F);
      peakAfter(control, 1e-4F, 20.0F);
      EXPECT_EQ(decibels(control.levelStage.gain), gain);  // stands still for as long as it takes
    } else {
      EXPECT_GT(gain, 29.0F);
    }
  }
}

TEST(LevelStage, AttackAndReleaseFollowTheirTimes) {
  LevelStage stage({.makeupGain = 1.0F, .level = 0.1F, .attackTime = 0.02F, .releaseTime = 0.05F});
  const float target = 1.0F / (0.1F * meanOfSine);
  const auto hold = [&](float input, float seconds) {
    const std::vector<float> samples(static_cast<std::size_t>(seconds * sampleRate + 0.5F), input);
    std::vector<float> gains(samples.size());
    stage.gains(samples, gains);
  };
  hold(1.0F, 0.02F);
  EXPECT_NEAR(stage.smoothedReduction, target - (target - 1.0F) * std::exp(-1.0F), 0.01F);
  hold(1.0F, 1.0F);
  EXPECT_NEAR(stage.gain, 0.1F * meanOfSine, 1e-4F);
  hold(0.0F, 0.05F);
  EXPECT_NEAR(stage.smoothedReduction, 1.0F + (target - 1.0F) * std::exp(-1.0F), 0.01F);
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

TEST(OutputLevelControl, SwitchesTakeTheLimiterAndTheDelayOut) {
  LevelControlSettings settings = switchedOn();
  settings.levelStage = {.makeupGain = 4.0F, .level = 100.0F};
  settings.limiterStage = {.makeupGain = 1.0F, .level = 0.5F};  // no time constants
  for (const bool limiter : {true, false}) {
    settings.limiterEnabled = limiter;
    settings.lookAheadEnabled = !limiter;  // of no effect without the limiter
    OutputLevelControl control;
    control.apply(settings);
    float output = 0.0F;
    control.process(1.0F, output);
    EXPECT_FLOAT_EQ(output, limiter ? 0.5F * meanOfSine : 4.0F);
  }
}

TEST(OutputLevelControl, LimiterActsBeforeTheSignalArrives) {
  OutputLevelControl control;
  LevelControlSettings settings = switchedOn();
  settings.levelStage = {.makeupGain = 1.0F, .level = 100.0F, .attackTime = 1.0F};
  control.apply(settings);
  float greatest = 0.0F;
  for (int i = 0; i < 1600; ++i) {
    float output = 0.0F;
    control.process(i < 800 ? 0.0F : 1.0F, output);
    greatest = std::max(greatest, output);
  }
  // 64 samples of look-ahead are 8 attack times: the step never passes.
  EXPECT_NEAR(greatest, 0.5011872F * meanOfSine, 0.01F);
}

// Whatever the settings before were, and whatever they left behind.
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

TEST(OutputLevelControl, BadSettingsAreForgottenWithTheNextGoodOnes) {
  constexpr float odd[] = {0.0F, -1.0F, 1e30F, -1e30F, 1e-40F, 3.0F};
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

// A gain that is lowered in loud sound keeps the reduction made before: it relaxes in its own time.
TEST(OutputLevelControl, StateOutlivesOrdinarySettings) {
  OutputLevelControl control;
  LevelControlSettings settings = switchedOn();
  control.apply(settings);
  peakAfter(control, 1.0F, 2.0F);
  const float reduction = control.levelStage.smoothedReduction;
  settings.levelStage.makeupGain = 1.0F;
  control.apply(settings);
  peakAfter(control, 0.001F, 0.1F);
  EXPECT_NEAR(control.levelStage.smoothedReduction / reduction, std::exp(-0.1F / 6.0F), 0.01F);
  EXPECT_NEAR(control.levelStage.reductionFloor / reduction, 1.0F, 0.01F);
}

}  // namespace
}  // namespace vellumic
