#include <gtest/gtest.h>

#include <Eigen/LU>
#include <random>

#include "array/BeamformerAdaptive.h"
#include "array/PrincipalComponent.h"
#include "array/StftChannel.h"
#include "platform/FloatingPointMode.h"
#include "tests/array/Signals.h"

namespace vellumic {
namespace {

using Complex = std::complex<float>;

Eigen::MatrixXcd randomMatrix(int size, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  return Eigen::MatrixXcd::NullaryExpr(
      size, size, [&] { return std::complex<double>(normal(random), normal(random)); });
}

struct Problem {
  int microphones;
  double level;  // power of the covariances
};

class PrincipalComponent : public testing::TestWithParam<Problem> {};

// A pair of matrices made from known eigenvectors, and the determinant formula in double.
TEST_P(PrincipalComponent, HasTheScaleAndPolarityOfTheDeterminantFormula) {
  const auto [count, level] = GetParam();
  const Eigen::MatrixXcd mixing =
      randomMatrix(count, 7) + 3.0 * Eigen::MatrixXcd::Identity(count, count);
  const Eigen::MatrixXcd vectors = mixing / std::sqrt(level);
  const Eigen::VectorXd values = Eigen::VectorXd::LinSpaced(count, 1.0, 10.0 * count);
  const Eigen::MatrixXcd inverse = vectors.inverse();
  Eigen::MatrixXcf noise = (inverse.adjoint() * inverse).cast<Complex>();
  Eigen::MatrixXcf signal = (inverse.adjoint() * values.asDiagonal() * inverse).cast<Complex>();
  noise.triangularView<Eigen::StrictlyUpper>().setConstant(1e9F);  // must not be read
  signal.triangularView<Eigen::StrictlyUpper>().setConstant(1e9F);

  const std::complex<double> scale =
      -vectors.block(1, 0, count - 1, count - 1).determinant() / vectors.determinant();
  const Eigen::VectorXcd expected = (scale * vectors.col(count - 1)).conjugate();
  Eigen::VectorXcf weights(count);
  solvePrincipalComponent(signal, noise, weights);
  EXPECT_LT((weights.cast<std::complex<double>>() - expected).norm(), 2e-3 * expected.norm());
}
INSTANTIATE_TEST_SUITE_P(Sizes, PrincipalComponent,
                         testing::Values(Problem{2, 1.0}, Problem{3, 1.0}, Problem{4, 1.0},
                                         Problem{5, 1e-14}, Problem{8, 1.0}, Problem{8, 1e-14},
                                         Problem{16, 1e3}));
#ifndef VELLUMIC_SHORT_TESTS  // this size allocates, which RealtimeSanitizer would report
INSTANTIATE_TEST_SUITE_P(AboveTheLimit, PrincipalComponent, testing::Values(Problem{17, 1.0}));
#endif

TEST(PrincipalComponentOfBadMatrices, IsNanOrTheFirstMicrophone) {
  Eigen::MatrixXcf good = Eigen::MatrixXcf::Identity(4, 4), bad = good;
  bad(2, 1) = std::numeric_limits<float>::quiet_NaN();
  Eigen::VectorXcf weights(4);
  solvePrincipalComponent(bad, good, weights);
  EXPECT_TRUE(std::isnan(weights[0].real()));
  solvePrincipalComponent(good, bad, weights);
  EXPECT_TRUE(std::isnan(weights[0].real()));
  const Eigen::MatrixXcf twins = Eigen::MatrixXcf::Constant(4, 4, 0.25F);  // equal microphones
  solvePrincipalComponent(twins, twins, weights);
  EXPECT_NEAR(std::abs(weights.sum() - Complex(1.0F)), 0.0F, 1e-3F);
}

Eigen::ArrayXXcf randomFrame(int bins, int microphones, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  return Eigen::ArrayXXcf::NullaryExpr(bins, microphones,
                                       [&] { return Complex(normal(random), normal(random)); });
}

TEST(BeamformerAdaptive, PassesTheFirstMicrophoneButForTheBinsSolvedSoFar) {
  EXPECT_EQ(BeamformerAdaptive(1, 0, 125.0F).channelCount, 2);
  EXPECT_EQ(BeamformerAdaptive(1, 0, 125.0F).binsPerFrame, 0);
  BeamformerAdaptive beamformer(3, 257, 125.0F);
  EXPECT_NEAR(beamformer.covarianceRate, 0.0015987F, 1e-7F);
  beamformer.apply({.covarianceTimeConstant = -1.0F, .thresholdScale = 1.0F});
  EXPECT_EQ(beamformer.covarianceRate, 1.0F);  // held to its lower bound
  beamformer.apply({});
  EXPECT_NEAR(beamformer.covarianceRate, 0.0015987F, 1e-7F);
  Eigen::ArrayXcf output(257);
  const Eigen::ArrayXXcf input = randomFrame(257, 3, 1);
  beamformer.process(input, output);
  EXPECT_TRUE((output.tail(241) == input.col(0).tail(241)).all());
  EXPECT_FALSE((output.head(16) == input.col(0).head(16)).any());
  for (int frame = 1; frame < 17; ++frame) beamformer.process(input, output);
  EXPECT_EQ(beamformer.nextBin, 17 * 16 - 257);  // once round in 17 frames
  EXPECT_FALSE((output == input.col(0)).any());

  EXPECT_TRUE(beamformer.init(true));
  EXPECT_EQ(beamformer.nextBin, 0);
  EXPECT_EQ(beamformer.weights.at(5, 0), Complex(1.0F));
  EXPECT_EQ(beamformer.estimators[2].noisePower[5], 1e-5F);
  beamformer.enabled = false;
  beamformer.process(input, output);
  EXPECT_TRUE((output == input.col(0)).all());
}

TEST(BeamformerAdaptive, AdaptationModesDecideWhatMoves) {
  struct Case {
    std::int32_t mode;
    bool signalMoves, noiseMoves;
  };
  for (const Case c : {Case{BeamformerAdaptive::adaptFree, true, true},
                       Case{BeamformerAdaptive::freezeNoise, true, false},
                       Case{BeamformerAdaptive::byActivity, true, false},  // loud from the start
                       Case{BeamformerAdaptive::freezeBoth, false, false}}) {
    BeamformerAdaptive beamformer(2, 257, 125.0F);
    const BeamformerAdaptive fresh = beamformer;
    beamformer.adaptationMode = c.mode;
    Eigen::ArrayXcf output(257);
    beamformer.process(randomFrame(257, 2, 3), output);
    const auto moved = [&](auto member) {
      return ((beamformer.*member).planes != (fresh.*member).planes).topRows(257).colwise().any();
    };
    EXPECT_EQ(moved(&BeamformerAdaptive::signalCovariance).all(), c.signalMoves) << c.mode;
    EXPECT_EQ(moved(&BeamformerAdaptive::noiseCovariance).all(), c.noiseMoves) << c.mode;
    EXPECT_EQ(moved(&BeamformerAdaptive::noiseCovariance).any(), c.noiseMoves) << c.mode;
  }
}

// Either the power of one microphone or enough bins on any of them make a frame active.
TEST(BeamformerAdaptive, DetectsActivity) {
  struct Case {
    float broadband;  // power over noise power in all bins of both microphones
    int speechBins;   // of 256, on the second microphone: 5 times the noise, probability 0.8
    float thresholdScale;
    bool active;
  };
  for (const Case c :
       {Case{1.4F, 0, 1.0F, false}, Case{1.7F, 0, 1.0F, true}, Case{1.7F, 0, 1.2F, false},
        Case{0.1F, 37, 1.0F, false}, Case{0.1F, 40, 1.0F, true}, Case{0.1F, 40, 1.2F, false}}) {
    BeamformerAdaptive beamformer(2, 256, 125.0F);
    beamformer.apply({.covarianceTimeConstant = 5.0F, .thresholdScale = c.thresholdScale});
    for (ActivityEstimator& estimator : beamformer.estimators) {
      estimator.noiseRate = 0.0F;
      estimator.noisePower = 1.0F;
    }
    Eigen::ArrayXXcf input = Eigen::ArrayXXcf::Constant(256, 2, std::sqrt(c.broadband));
    input.col(1).head(c.speechBins).setConstant(std::sqrt(5.0F));
    Eigen::ArrayXcf output(256);
    beamformer.process(input, output);
    EXPECT_EQ(beamformer.signalActive, c.active) << c.broadband << ' ' << c.speechBins;
  }
}

// Direct sound, `step` samples later from microphone to microphone, and sparse reflections.
Eigen::ArrayXXf throughRoom(const Eigen::ArrayXf& source, int microphones, int step,
                            unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  Eigen::ArrayXXf out = Eigen::ArrayXXf::Zero(source.size(), microphones);
  for (int m = 0; m < microphones; ++m) {
    Eigen::ArrayXf response = Eigen::ArrayXf::Zero(128);
    for (int t = 30; t < 128; t += 3)
      response[t] = 0.12F * normal(random) * std::exp(-static_cast<float>(t) / 30.0F);
    response[16 + step * (m - microphones / 2)] = 1.0F;
    for (int t = 0; t < 128; ++t) {
      if (response[t] != 0.0F)
        out.col(m).tail(source.size() - t) += response[t] * source.head(source.size() - t);
    }
  }
  return out;
}

class BeamformerScene : public testing::TestWithParam<std::pair<int, float>> {};

TEST_P(BeamformerScene, ImprovesTheSignalToNoiseRatio) {
  cutDenormals();
  const auto [microphones, leastGain] = GetParam();
#ifdef VELLUMIC_SHORT_TESTS
  constexpr int seconds = 8, scoredFrom = 6;
#else
  constexpr int seconds = 20, scoredFrom = 10;
#endif
  // One talker, one noise source elsewhere, and the microphones' own noise.
  const Eigen::ArrayXXf talker = throughRoom(speechLike(seconds * rate), microphones, 1, 11);
  Eigen::ArrayXXf disturbance =
      throughRoom(whiteNoise(seconds * rate, 0.03F, 12), microphones, -2, 13);
  for (int m = 0; m < microphones; ++m)
    disturbance.col(m) += whiteNoise(seconds * rate, 0.005F, 20U + static_cast<unsigned>(m));
  BeamformerAdaptive beamformer(microphones);
  std::vector<StftChannel> targetFrames(static_cast<std::size_t>(microphones)),
      noiseFrames(static_cast<std::size_t>(microphones));
  Eigen::ArrayXXcf target(257, microphones), noise(257, microphones);
  Eigen::ArrayXcf output(257);
  float targetIn = 0.0F, noiseIn = 0.0F, targetOut = 0.0F, noiseOut = 0.0F;
  for (int frame = 0; frame < seconds * framesPerSecond; ++frame) {
    for (int m = 0; m < microphones; ++m) {
      const auto c = static_cast<std::size_t>(m);
      targetFrames[c].analyzeFrame(talker.col(m).segment(frame * hop, hop), target.col(m));
      noiseFrames[c].analyzeFrame(disturbance.col(m).segment(frame * hop, hop), noise.col(m));
    }
    beamformer.process(target + noise, output);
    if (frame < scoredFrom * framesPerSecond) continue;
    const Eigen::ArrayXXcf weights =
        beamformer.weights.real.topRows(257).cast<Complex>() +
        Complex(0.0F, 1.0F) * beamformer.weights.imaginary.topRows(257).cast<Complex>();
    const auto power = [&](const Eigen::ArrayXXcf& part) {
      return (part * weights).rowwise().sum().abs2().sum();
    };
    targetIn += target.col(0).abs2().sum();
    noiseIn += noise.col(0).abs2().sum();
    targetOut += power(target);
    noiseOut += power(noise);
  }
  const float gain = decibels(targetOut / noiseOut) - decibels(targetIn / noiseIn);
  std::printf("[ measured ] %d microphones: SNR %.1f dB -> +%.1f dB, talker %.2f dB\n", microphones,
              decibels(targetIn / noiseIn), gain, decibels(targetOut / targetIn));
  EXPECT_GT(gain, leastGain);
  EXPECT_NEAR(decibels(targetOut / targetIn), 0.0F, 1.0F);  // as it arrives at the first microphone
}
INSTANTIATE_TEST_SUITE_P(Microphones, BeamformerScene,
                         testing::Values(std::pair{2, 3.0F}, std::pair{4, 6.0F},
                                         std::pair{8, 8.0F}));

}  // namespace
}  // namespace vellumic
