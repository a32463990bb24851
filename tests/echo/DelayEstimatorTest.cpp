#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>
#include <vector>

#include "echo/DelayEstimator.h"
#include "echo/kernels/CorrelationKernels.h"
#include "platform/InstructionSet.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

constexpr int block = 1024;

// White noise and the same noise `lag` samples later, over `updates` blocks.
int lagAfter(DelayEstimator& estimator, int lag, int updates, float microphoneGain = 1.0F) {
  constexpr int margin = 5000;
  std::minstd_rand engine(11);
  std::normal_distribution<float> normal;
  std::vector<float> noise(static_cast<std::size_t>(updates * block + 2 * margin));
  for (float& sample : noise) sample = normal(engine);
  Eigen::ArrayXXf reference(block, 2), microphones(block, 3);
  for (int u = 0; u < updates; ++u) {
    for (int i = 0; i < block; ++i) {
      const int time = margin + u * block + i;
      reference.row(i).setConstant(noise[static_cast<std::size_t>(time)]);
      microphones.row(i).setConstant(microphoneGain * noise[static_cast<std::size_t>(time - lag)]);
    }
    const RealtimeGuard guard;
    estimator.update(reference, microphones);
    EXPECT_EQ(guard.violations(), 0) << guard.first();
  }
  return estimator.committedLag;
}

TEST(DelayEstimator, MeasuresLagsOfBothSignsAtTheFourthUpdate) {
  for (int lag : {1, 102, 1500, 3000, -1, -320, -2500})
    for (float gain : {1.0F, -0.01F}) {
      DelayEstimator estimator;
      EXPECT_EQ(lagAfter(estimator, lag, 8, gain), lag);
    }
  DelayEstimator estimator;
  EXPECT_EQ(lagAfter(estimator, 102, 3), 0);
  estimator.reset();
  EXPECT_EQ(lagAfter(estimator, 102, 4), 102);
}

TEST(DelayEstimator, TakesALagAfterThreeAgreements) {
  struct Case {
    std::vector<int> lags;
    int committed, agreeing;
  };
  const Case cases[] = {
      {{200, 200, 200}, 0, 2},
      {{200, 200, 200, 200}, 200, 3},
      {{200, 210, 220, 231}, 231, 3},  // each within 5 % of the one before
      {{200, 211, 211, 211}, 0, 2},    // 11 is above 5 % of 200
      {{9, 10, 10, 10}, 0, 2},         // the tolerance of 9 rounds to 0
      {{10, 11, 11, 11}, 11, 3},       // that of 10 rounds half away from zero, to 1
      {{-10, -11, -11, -11}, -11, 3},
      {{200, 200, 200, 200, 200, 0, 0, 0, 0}, 0, 3},
      {{200, 200, 200, 200, 300, 200, 200}, 200, 0},  // the committed lag changes no count
  };
  for (const Case& test : cases) {
    DelayEstimator estimator;
    for (int lag : test.lags) estimator.accept(lag);
    EXPECT_EQ(estimator.committedLag, test.committed) << test.lags.back();
    EXPECT_EQ(estimator.agreeCount, test.agreeing) << test.lags.back();
    EXPECT_EQ(estimator.lastLag, test.lags.back());
  }
}

TEST(CorrelationKernels, TheFirstOfEqualPeaksCounts) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const InstructionSet set : {InstructionSet::Base, InstructionSet::Avx2}) {
    const ScopedInstructionSet scope(set);
    std::vector<float> samples(37);
    const auto peak = [&] {
      return correlationKernels().firstPeak(samples.data(), static_cast<int>(samples.size()));
    };
    samples[0] = nan;
    EXPECT_EQ(peak(), 0);
    samples[36] = 2.0F;
    EXPECT_EQ(peak(), 36);
    samples[20] = -2.0F;
    EXPECT_EQ(peak(), 20);
    samples[19] = nan;
    EXPECT_EQ(peak(), 20);
  }
}

}  // namespace
}  // namespace vellumic
