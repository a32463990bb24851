#include <gtest/gtest.h>

#include <Eigen/LU>
#include <random>

#include "array/BeamformerAdaptive.h"
#include "array/PrincipalComponent.h"

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

}  // namespace
}  // namespace vellumic
