#include <gtest/gtest.h>

#include <limits>

#include "array/ActivityEstimator.h"
#include "array/BoundedValue.h"

namespace vellumic {
namespace {

constexpr float frameRate = 125.0F;  // hops of 128 samples at 16 kHz

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
