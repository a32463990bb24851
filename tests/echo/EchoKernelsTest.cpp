// The kernels of one instruction set against those of another, on the same random bins.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "echo/kernels/CorrelationKernels.h"
#include "echo/kernels/KalmanKernels.h"
#include "echo/kernels/ReferenceKernels.h"
#include "echo/kernels/SuppressorKernels.h"
#include "platform/InstructionSet.h"

namespace vellumic::testing {
namespace {

// Arrays of random numbers over many powers of ten, some not finite, and one float behind each that
// no kernel may touch.
class Bins {
 public:
  Bins(int count, float sign) : count_(count), least_(sign), arrays_(40) {
    std::minstd_rand random(3);
    std::uniform_real_distribution<float> draw(-1.0F, 1.0F);
    for (auto& array : arrays_) {
      array.assign(static_cast<std::size_t>(count) + 1, guard);
      for (int k = 0; k < count; ++k) {
        float& value = array[static_cast<std::size_t>(k)];
        value = draw(random) * std::exp(12.0F * draw(random));
        if (least_ > 0.0F) value = std::abs(value);
        if (random() % 50 == 0) value = 0.0F;
        if (random() % 400 == 0) value = std::numeric_limits<float>::infinity();
      }
    }
  }
  int count() const { return count_; }
  float* next() { return arrays_[taken_++].data(); }
  Planes nextPlanes() { return {next(), next()}; }
  bool guarded() const {
    for (const auto& array : arrays_)
      if (array.back() != guard) return false;
    return true;
  }
  const std::vector<std::vector<float>>& arrays() const { return arrays_; }

 private:
  static constexpr float guard = 12345.0F;
  int count_;
  float least_;
  std::size_t taken_ = 0;
  std::vector<std::vector<float>> arrays_;
};

struct Outcome {
  std::vector<std::vector<float>> arrays;
  float noiseSum, covariance, energies;
  int settled, peak;
  bool moving;
};

Outcome runAll(int count, float sign) {
  Bins bins(count, sign);
  Outcome outcome;
  const KalmanKernels& kalman = kalmanKernels();
  kalman.predictEcho({bins.nextPlanes(), bins.nextPlanes(), bins.nextPlanes(), bins.nextPlanes(),
                      bins.nextPlanes()},
                     count);
  const Planes microphone = bins.nextPlanes();
  outcome.noiseSum = kalman.measureError(
      {microphone, bins.nextPlanes(), bins.next(), 0.7F, 0.1F, false, microphone, bins.next()},
      count);
  kalman.adapt({bins.nextPlanes(), microphone, bins.next(), bins.next(), bins.next(), bins.next(),
                bins.nextPlanes()},
               count);
  kalman.takeStep({microphone, 0.9F, bins.nextPlanes(), bins.next()}, count);
  const float* quiet = bins.next();
  const auto health =
      kalman.judge({quiet, quiet, bins.next(), bins.next(), 0.5F, 1e-5F, bins.next()}, count);
  outcome.covariance = health.covariance;
  outcome.settled = health.settled;
  outcome.moving = health.moving;
  const auto energies = kalman.subtract(bins.next(), quiet, bins.next(), count);
  outcome.energies = energies.error + energies.microphone;

  Bins more(count, sign);
  referenceKernels().update(
      {more.nextPlanes(), more.nextPlanes(), 0.7F, 0.2F, more.next(), more.next(),
       more.nextPlanes(), more.next(), more.next(), more.nextPlanes(), more.nextPlanes()},
      count);
  referenceKernels().magnitude(more.nextPlanes(), more.next(), count);
  suppressorKernels().suppress({more.next(), 0.6F, 20.0F, 0.01F, 0.03F, 1000.0F, more.next(),
                                more.next(), more.next(), more.nextPlanes()},
                               count);
  correlationKernels().correlate(more.nextPlanes(), more.nextPlanes(), count);
  outcome.peak = correlationKernels().firstPeak(more.next(), count);

  EXPECT_TRUE(bins.guarded() && more.guarded());
  outcome.arrays = bins.arrays();
  outcome.arrays.insert(outcome.arrays.end(), more.arrays().begin(), more.arrays().end());
  return outcome;
}

bool same(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

void expectNear(float a, float b) {
  EXPECT_EQ(std::isfinite(a), std::isfinite(b));
  if (std::isfinite(a)) {
    EXPECT_NEAR(a, b, 1e-5F * std::abs(a));
  }
}

TEST(EchoKernels, AllSetsAgree) {
  for (const int count : {1, 3, 8, 129, 1025})
    for (const float sign : {0.0F, 1.0F}) {
      SCOPED_TRACE(count);
      const Outcome fast = runAll(count, sign);
      const ScopedInstructionSet base(InstructionSet::Base);
      const Outcome plain = runAll(count, sign);
      for (std::size_t n = 0; n < fast.arrays.size(); ++n)
        for (std::size_t k = 0; k < fast.arrays[n].size(); ++k)
          ASSERT_TRUE(same(fast.arrays[n][k], plain.arrays[n][k])) << n << ' ' << k;
      expectNear(fast.noiseSum, plain.noiseSum);
      expectNear(fast.covariance, plain.covariance);
      expectNear(fast.energies, plain.energies);
      EXPECT_EQ(fast.settled, plain.settled);
      EXPECT_EQ(fast.moving, plain.moving);
      EXPECT_EQ(fast.peak, plain.peak);
    }
}

TEST(EchoKernels, TheFirstOfEqualPeaksCounts) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
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

}  // namespace
}  // namespace vellumic::testing
