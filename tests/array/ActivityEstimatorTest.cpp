#include <gtest/gtest.h>

#include <limits>

#include "array/ActivityEstimator.h"
#include "array/BoundedValue.h"

namespace vellumic {
namespace {

constexpr float frameRate = 125.0F;  // hops of 128 samples at 16 kHz
constexpr float startNoise = 1e-5F;

float probabilityAfter(int frames, float power, ActivityEstimator& estimator) {
  Eigen::ArrayXf input = Eigen::ArrayXf::Constant(1, power), output(1);
  for (int i = 0; i < frames; ++i) estimator.process(input, output);
  return output[0];
}

TEST(BoundedValue, AppliesBoundsWhenSetAndWhenTheyChange) {
  BoundedFloat value = BoundedFloat::atLeast(1.0F, 0.5F);
  EXPECT_EQ(value, 1.0F);
  value = 7.0F;
  value.setUpperBound(5.0F);
  EXPECT_EQ(value, 5.0F);
  value.setLowerBound(6.0F);  // contradicting bounds: the lower one is applied last
  EXPECT_EQ(value, 6.0F);
  BoundedInt free(3);
  free = -2000000000;
  EXPECT_EQ(free, -2000000000);
}

TEST(ActivityEstimator, HasTheStatedRatesAndProbabilities) {
  const ActivityEstimator sized(0, frameRate);
  EXPECT_EQ(sized.binCount, 1);
  EXPECT_NEAR(sized.smoothingRate, 0.0512705F, 1e-6F);
  EXPECT_NEAR(sized.noiseRate, 0.1051607F, 1e-6F);
  struct Case {
    float ratio, probability;  // of power to noise power
  };
  for (const Case c :
       {Case{1.0F, 0.0748F}, Case{0.0F, 0.0297F}, Case{22.0F, 1.0F}, Case{1e30F, 1.0F}}) {
    ActivityEstimator estimator(1, frameRate);
    EXPECT_NEAR(probabilityAfter(1, c.ratio * startNoise, estimator), c.probability, 5e-5F);
  }
}

TEST(ActivityEstimator, GuardLetsNoiseClimbAfterAPowerJump) {
  ActivityEstimator estimator(1, frameRate);
  probabilityAfter(70, 1.0F, estimator);
  EXPECT_EQ(estimator.noisePower[0], startNoise);
  EXPECT_FLOAT_EQ(probabilityAfter(10, 1.0F, estimator), 0.99F);
  EXPECT_GT(estimator.noisePower[0], startNoise);
  probabilityAfter(40 * 125, 1.0F, estimator);
  EXPECT_NEAR(estimator.noisePower[0], 1.0F, 0.05F);
}

TEST(ActivityEstimator, WorksAsBeforeAfterTenSecondsOfDigitalSilence) {
  ActivityEstimator estimator(1, frameRate);
  probabilityAfter(1250, 0.0F, estimator);
  EXPECT_GE(estimator.noisePower[0], std::numeric_limits<float>::min());
  EXPECT_EQ(probabilityAfter(1, 1e-3F, estimator), 1.0F);
  probabilityAfter(60 * 125, 1e-3F, estimator);
  EXPECT_NEAR(estimator.noisePower[0], 1e-3F, 1e-4F);
}

}  // namespace
}  // namespace vellumic
