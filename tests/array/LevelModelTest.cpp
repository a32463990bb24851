// The level control in double, from its equations, beside the one in float.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <span>
#include <vector>

#include "array/OutputLevelControl.h"
#include "tests/array/Signals.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

// A float, as the stages keep their poles: those of a minute differ from 1 in the last bits only.
double poleOf(float seconds) { return std::exp(-1.0F / (seconds * 16000.0F)); }

struct LevelModel {
  LevelStageSettings s;
  double envelope = 0.0, smoothed = 1.0, floor = 1.0;

  double gain(double x) {
    envelope += (1.0 - poleOf(s.envelopeTime)) * (std::abs(x) - envelope);
    const double clipped = std::max(envelope, 1e-10), knee = s.level * 2.0 / std::numbers::pi;
    const double target = clipped <= knee / s.makeupGain ? 1.0 : s.makeupGain * clipped / knee;
    smoothed +=
        (target - smoothed) * (1.0 - poleOf(target > smoothed ? s.attackTime : s.releaseTime));
    if (!s.floorEnabled) return s.makeupGain / smoothed;
    if (smoothed >= target * s.floorMargin)
      floor += (1.0 - poleOf(s.floorTime)) * (smoothed - floor);
    else
      floor = std::max(floor, smoothed);
    return s.makeupGain / std::max(smoothed, floor);
  }
};

// Noise whose level jumps eight times, over 80 dB; once the settings come again and change nothing.
// Runs of any length give the same bits.
TEST(LevelModels, TheLevelControlFollowsItsEquations) {
  std::array<LevelControlSettings, 7> cases;
  cases[1].levelStage = {3.0F, 0.2F, 0.002F, 0.01F, 0.05F, true, 0.1F, 1.3F};
  cases[1].limiterStage = {1.5F, 0.3F, 0.001F, 0.003F, 0.02F, true, 0.04F, 1.1F};
  cases[1].lookAheadTime = 0.001F;
  cases[2] = cases[1];
  cases[2].lookAheadEnabled = false;
  cases[3].limiterEnabled = false;
  cases[4].lookAheadTime = 0.0F;
  cases[5].lookAheadTime = 1e30F;
  cases[6].lookAheadTime = -1e30F;
  const std::size_t lookAheads[] = {64, 16, 0, 0, 1, 19200, 1};
  for (std::size_t c = 0; c < cases.size(); ++c) {
    LevelControlSettings& settings = cases[c];
    settings.levelControlEnabled = true;
    OutputLevelControl control, runs;
    control.apply(settings);
    runs.apply(settings);
    LevelModel level{settings.levelStage}, limiter{settings.limiterStage};
    std::deque<double> delayed(lookAheads[c]);
    const float levels[] = {0.0F, 0.3F, 1e-4F, 0.01F, 1.0F, 0.03F, 0.1F, 1e-3F};
    Eigen::ArrayXf noise = whiteNoise(8 * 4000, 1.0F, 40);
    const std::span samples(noise.data(), static_cast<std::size_t>(noise.size()));
    std::vector<float> outputs;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const float x = samples[i] *= levels[i / 4000];
      if (i == 11'000) control.apply(settings);
      control.process(x, outputs.emplace_back());
      double expected = x * level.gain(x);
      if (settings.limiterEnabled) {
        const double gain = limiter.gain(expected);
        delayed.push_back(expected);
        expected = gain * delayed.front();
        delayed.pop_front();
      }
      ASSERT_NEAR(outputs.back(), expected, 1e-3 * std::abs(expected) + 1e-9) << c << ' ' << i;
    }
    const RealtimeGuard guard;
    for (std::size_t at = 0, run = 1; at < outputs.size(); at += run, run = run * 7 % 301)
      runs.process(samples.subspan(at, std::min(run, outputs.size() - at)));
    EXPECT_EQ(guard.violations(), 0) << guard.first();
    EXPECT_TRUE(std::ranges::equal(samples, outputs)) << c;
    EXPECT_EQ(runs.levelStage.gain, control.levelStage.gain);
  }
}

}  // namespace
}  // namespace vellumic
