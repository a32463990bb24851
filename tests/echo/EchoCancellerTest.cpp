#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "echo/EchoCanceller.h"
#include "tests/echo/EchoScene.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic::testing {
namespace {

bool allFinite(std::span<const float> samples) {
  return std::ranges::all_of(samples, [](float sample) { return std::isfinite(sample); });
}

TEST(EchoPathFilter, LimitsTheGain) {
  constexpr int length = 128, bins = length + 1;
  Fft fft(2 * length);
  SplitSpectrum one, update;
  one.setZero(bins);
  one.real.setOnes();
  update.setZero(bins);
  Eigen::ArrayXf frame(2 * length);
  // Denominators 3 * 1 * G + noise of +-1e-4, 0.97 and 4e-6: without a limit 1e4, -1e4, 1.03 and
  // 2.5e5. The limit takes G for no less than 1e-5.
  const float powers[] = {0.01F, 0.01F, 0.01F, 1e-6F},
              noises[] = {-0.0299F, -0.0301F, 0.94F, 1e-6F},
              gains[] = {200.0F, 200.0F, 1.0309278F, 2e5F};
  for (std::size_t i = 0; i < 4; ++i) {
    EchoPathFilter filter;
    filter.setup(length);
    filter.updateFilter({.decorrelated = one,
                         .scaledPower = Eigen::ArrayXf::Constant(bins, powers[i]),
                         .error = one,
                         .noisePower = Eigen::ArrayXf::Constant(bins, noises[i])},
                        {.fft = fft, .update = update, .frame = frame});
    // A constant update is an impulse at the first tap: the constraint lets it through.
    EXPECT_NEAR(filter.weights.real[5], gains[i], 1e-4F * gains[i]);
    EXPECT_NEAR(filter.posterior[5], 1.0F - powers[i] * gains[i], 1e-4F);
  }
}

// A hum while the speakers stream silence, then sudden loud sound.
TEST(ResidualSuppressor, AHumDoesNotRunAwayWithTheCoupling) {
  ResidualSuppressor suppressor;
  suppressor.setup(1024);
  EchoCancellerSettings settings;
  settings.couplingStep = 1000.0F;
  ReferenceBlock loud, silent;
  loud.setup(1024);
  silent.setup(1024);
  for (auto& magnitude : loud.sumMagnitude) magnitude.setConstant(10.0F);
  const Eigen::ArrayXf error = 0.01F * Eigen::ArrayXf::Random(1024);
  const auto feed = [&](const ReferenceBlock& reference, int blocks) {
    for (int b = 0; b < blocks; ++b)
      suppressor.suppressResidual({error, error, reference, 1.0F, 0.1F}, settings);
  };
  feed(silent, 1000);
  EXPECT_EQ(suppressor.couplingGain.maxCoeff(), 1000.0F);
  feed(loud, 50);
  EXPECT_GE(suppressor.couplingGain.minCoeff(), 0.0F);
  EXPECT_TRUE(suppressor.isFinite());
}

TEST(EchoCanceller, RecoversFromSettingsThatNoArithmeticSurvives) {
  constexpr float odd[] = {0.0F, -1.0F, 2.0F, 1e30F, -1e30F, 1e-40F};
  std::minstd_rand engine(5);
  EchoScene scene(256);
  EchoBench bench(scene);
  for (int round = 0; round < 30 * patience; ++round) {
    EchoCancellerSettings settings;
    for (float* field :
         {&settings.powerSmoothing, &settings.filterPole, &settings.crossFactor,
          &settings.overSubtraction, &settings.couplingStep, &settings.referenceSmoothing,
          &settings.levelSmoothing, &settings.suppressionFloor, &settings.updateThreshold})
      if (engine() % 3 == 0) *field = odd[engine() % std::size(odd)];
    bench.apply(settings);
    for (int b = 0; b < 10; ++b) {
      bench.run(1, {.left = 1e6F, .near = 1e6F});
      EXPECT_TRUE(allFinite(bench.output)) << round;
    }
  }
  bench.apply({});
  bench.run(200);
  EXPECT_GT(bench.run(20), 10.0);
  EXPECT_GT(energy(bench.output), 0.0);
}

TEST(EchoCanceller, CancelsAtAnyBlockLength) {
  for (const int length : {128, 150, 1024, 1080, 16384}) {
    EchoScene scene(length);
    EchoBench bench(scene);
    EXPECT_TRUE(bench.run(60) > 10.0 || length == 16384) << length;
    bench.canceller.setup();
    bench.run(1);
    EXPECT_GT(energy(bench.output), 0.0) << length;
  }
}

}  // namespace
}  // namespace vellumic::testing
