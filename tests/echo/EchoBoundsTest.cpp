// Bounds that sound within the settings' ranges never reaches, for which the model is no help.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <span>

#include "echo/EchoCanceller.h"
#include "echo/kernels/KalmanKernels.h"

namespace vellumic {
namespace {

TEST(KalmanKernels, LimitTheGain) {
  // Denominators 3 * 1 * G + noise of +-1e-4, 0.97 and 4e-6: without a limit 1e4, -1e4, 1.03 and
  // 2.5e5. The limit takes G for no less than 1e-5.
  const float powers[] = {0.01F, 0.01F, 0.01F, 1e-6F},
              noises[] = {-0.0299F, -0.0301F, 0.94F, 1e-6F},
              gains[] = {200.0F, 200.0F, 1.0309278F, 2e5F};
  const float zeros[4] = {}, ones[] = {1.0F, 1.0F, 1.0F, 1.0F};
  float posterior[] = {1.0F, 1.0F, 1.0F, 1.0F}, real[4], imaginary[4];
  kalmanKernels().adapt({.decorrelated = {ones, zeros},
                         .error = {ones, zeros},
                         .scaledPower = powers,
                         .noisePower = noises,
                         .processNoise = zeros,
                         .posterior = posterior,
                         .update = {real, imaginary}},
                        4);
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(real[i], gains[i], 1e-4F * gains[i]);
    EXPECT_NEAR(posterior[i], 1.0F - powers[i] * gains[i], 1e-4F);
  }
}

TEST(ResidualSuppressor, HoldsItsBounds) {
  ResidualSuppressor suppressor;
  suppressor.setup(1024);
  EchoCancellerSettings settings{.overSubtraction = 1.0F,
                                 .couplingStep = 0.0F,
                                 .referenceSmoothing = 0.0F,
                                 .levelSmoothing = 1.0F};
  ReferenceBlock reference;
  reference.setup(1024);
  Eigen::ArrayXf error = Eigen::ArrayXf::Zero(1024);
  const auto feed = [&](float magnitude, int blocks) {
    for (auto& magnitudes : reference.sumMagnitude) magnitudes.setConstant(magnitude);
    for (int b = 0; b < blocks; ++b)
      suppressor.suppressResidual({error, error, reference, 1.0F, 0.1F}, settings);
  };
  // A silent error counts as a power of 1e-10: 1 - (0.001 * 0.01)^2 * 0.5 / 1e-10.
  suppressor.longTermLevel = 0.5F;
  feed(0.01F, 1);
  EXPECT_TRUE(suppressor.suppression.isApproxToConstant(0.5F, 1e-4F));

  // A hum while the speakers stream silence, then sudden loud sound: the coupling runs away
  // nowhere.
  settings = {.couplingStep = 1000.0F};
  error = 0.01F * Eigen::ArrayXf::Random(1024);
  feed(0.0F, 1000);
  EXPECT_EQ(suppressor.couplingGain.maxCoeff(), 1000.0F);
  feed(10.0F, 50);
  EXPECT_GE(suppressor.couplingGain.minCoeff(), 0.0F);
}

TEST(EchoCanceller, RecoversFromSettingsThatNoArithmeticSurvives) {
  using Settings = EchoCancellerSettings;
  constexpr int length = 256;
  ReferenceSpectra references(length);
  EchoCanceller canceller(length);
  Eigen::ArrayXf sound(length), output(length);
  const auto play = [&](const Settings& settings, float loudness) {
    references.apply(settings);
    canceller.apply(settings);
    sound = loudness * Eigen::ArrayXf::Random(length);
    const std::span samples(sound.data(), length);
    references.advance(samples, samples);
    output.setConstant(std::numeric_limits<float>::quiet_NaN());
    canceller.process(references, samples, {output.data(), length});
    return output.isFinite().all();
  };
  for (const auto field :
       {&Settings::powerSmoothing, &Settings::filterPole, &Settings::crossFactor,
        &Settings::overSubtraction, &Settings::couplingStep, &Settings::referenceSmoothing,
        &Settings::levelSmoothing, &Settings::suppressionFloor, &Settings::updateThreshold})
    for (const float odd : {0.0F, -1.0F, 2.0F, 1e30F, -1e30F, 1e-40F}) {
      Settings settings;
      settings.*field = odd;
      for (int block = 0; block < 60; ++block) EXPECT_TRUE(play(settings, 1e6F)) << odd;
    }
  EXPECT_TRUE(play({.levelSmoothing = 1e30F}, 1e25F));  // squares beyond float
  for (const float kept :
       {canceller.covarianceEnergy, canceller.blockEnergy, canceller.suppressor.longTermLevel})
    EXPECT_EQ(kept, 0.0F);
  for (float* number :
       {&canceller.suppressor.longTermLevel, &canceller.suppressor.referenceMagnitude[9],
        &canceller.noisePower[9], &canceller.filters[0].posterior[9],
        &canceller.filters[1].processNoise[9]}) {
    *number = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(play({}, 0.3F));
    EXPECT_TRUE(std::isfinite(*number) && (output == 0.0F).all());
  }
  for (int block = 0; block < 200; ++block) play({}, 0.3F);
  EXPECT_LT(output.square().sum(), 0.1F * sound.square().sum());
  EXPECT_GT(output.square().sum(), 0.0F);
}

}  // namespace
}  // namespace vellumic
