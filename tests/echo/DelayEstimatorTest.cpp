#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <tuple>
#include <vector>

#include "echo/DelayEstimator.h"
#include "echo/kernels/CorrelationKernels.h"
#include "platform/InstructionSet.h"

namespace vellumic {
namespace {

TEST(DelayEstimator, MeasuresLagsOfBothSignsAtTheFourthUpdate) {
  constexpr int block = 1024;
  const Eigen::ArrayXf noise = Eigen::ArrayXf::Random(16 * block);
  const Eigen::ArrayXf hum = Eigen::ArrayXf::Constant(block, 3.0F);  // nothing of it in the sum
  Eigen::ArrayXXf reference(block, 2), microphones(block, 3);
  DelayEstimator estimator;
  for (const int lag : {1, 102, 1500, 3000, -1, -320, -2500})
    for (const float gain : {-0.01F, 1.0F}) {
      estimator.reset();
      for (const bool silent : {false, true}) {  // nothing of the sound before stays
        reference.colwise() = noise.segment(0, block) * (silent ? 0.0F : 1.0F);
        microphones.colwise() = noise.segment(0, block) * (silent ? 1.0F : 0.0F);
        estimator.update(reference, microphones);
        EXPECT_EQ(estimator.lastLag, 0);
        estimator.rebuild();
      }
      for (int update = 1; update <= 8; ++update) {
        const int at = (3 + update) * block;
        reference.colwise() = noise.segment(at, block);
        microphones << gain * noise.segment(at - lag, block), hum, -hum;
        estimator.update(reference, microphones);
        if (update == 8 || std::abs(lag) < 1000) {
          EXPECT_EQ(estimator.committedLag, update < 4 ? 0 : lag) << gain;
        }
      }
    }
}

TEST(DelayEstimator, TakesALagAfterThreeAgreements) {
  const struct {
    std::vector<int> lags;
    int committed, agreeing;
  } cases[] = {
      {{0}, 0, 0},
      {{1, 1, 1}, 0, 2},
      {{200, 210, 220, 231}, 231, 3},  // each within 5 % of the one before
      {{200, 211, 211, 211}, 0, 2},    // 11 is above 5 % of 200
      {{9, 10, 10, 10}, 0, 2},         // the tolerance of 9 rounds to 0
      {{10, 11, 11, 11}, 11, 3},       // that of 10 rounds half away from zero, to 1
      {{-10, -11, -11, -11}, -11, 3},
      {{200, 200, 200, 200, 200, 0, 0, 0, 0}, 0, 3},
      {{200, 200, 200, 200, 300, 200, 200}, 200, 0},  // the committed lag changes no count
  };
  for (const auto& [lags, committed, agreeing] : cases) {
    DelayEstimator estimator;
    for (int lag : lags) estimator.accept(lag);
    EXPECT_EQ(estimator.committedLag, committed) << lags.back();
    EXPECT_EQ(estimator.agreeCount, agreeing) << lags.back();
  }
}

TEST(CorrelationKernels, TheFirstOfEqualPeaksCounts) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const InstructionSet set : {InstructionSet::Base, InstructionSet::Avx2}) {
    const ScopedInstructionSet scope(set);
    std::vector<float> samples(37);
    for (const auto& [at, sample, peak] :
         {std::tuple{0, nan, 0}, {36, 0.5F, 36}, {20, -0.5F, 20}, {19, nan, 20}, {0, 0.5F, 0}}) {
      samples[static_cast<std::size_t>(at)] = sample;
      EXPECT_EQ(correlationKernels().firstPeak(samples.data(), 37), peak);
    }
  }
}

}  // namespace
}  // namespace vellumic
