// The solver of one pair against the formula; the eigenvectors in lanes against the solver, on
// every instruction set.
#include <gtest/gtest.h>

#include <Eigen/LU>
#include <limits>
#include <random>
#include <tuple>

#include "array/BeamformerAdaptive.h"
#include "array/PrincipalComponent.h"
#include "array/kernels/PrincipalVectors.h"
#include "platform/InstructionSet.h"
#include "tests/array/Signals.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

using ComplexFloat = std::complex<float>;
constexpr int bins = 257;

struct Pair {
  Eigen::MatrixXcf signal, noise;
};

Eigen::MatrixXcf gaussian(int rows, int columns, std::mt19937& random) {
  std::normal_distribution<float> normal;
  return Eigen::MatrixXcf::NullaryExpr(
      rows, columns, [&] { return ComplexFloat(normal(random), normal(random)); });
}

// The mean of `count` outer products.
Eigen::MatrixXcf covariance(int size, int count, std::mt19937& random) {
  const Eigen::MatrixXcf x = gaussian(size, count, random);
  return x * x.adjoint() / static_cast<float>(count);
}

// A pair of matrices made from known eigenvectors, and the determinant formula in double.
TEST(PrincipalComponent, HasTheScaleAndPolarityOfTheDeterminantFormula) {
  std::mt19937 random(7);
  for (const auto& [size, level] : {std::pair{2, 1.0},
                                    {5, 1e-14},
                                    {8, 1.0},
                                    {16, 1e3},
#ifndef VELLUMIC_SHORT_TESTS  // this size allocates, which RealtimeSanitizer would report
                                    {17, 1.0}
#endif
       }) {
    const Eigen::MatrixXcd vectors =
        (gaussian(size, size, random) + 4.0F * Eigen::MatrixXcf::Identity(size, size))
            .cast<std::complex<double>>() /
        std::sqrt(level);
    const Eigen::VectorXd values = Eigen::VectorXd::LinSpaced(size, 1.0, 10.0 * size);
    const Eigen::MatrixXcd inverse = vectors.inverse();
    Eigen::MatrixXcf noise = (inverse.adjoint() * inverse).cast<ComplexFloat>();
    Eigen::MatrixXcf signal =
        (inverse.adjoint() * values.asDiagonal() * inverse).cast<ComplexFloat>();
    noise.triangularView<Eigen::StrictlyUpper>().setConstant(1e9F);  // must not be read
    signal.triangularView<Eigen::StrictlyUpper>().setConstant(1e9F);

    const std::complex<double> scale =
        -vectors.block(1, 0, size - 1, size - 1).determinant() / vectors.determinant();
    const Eigen::VectorXcd expected = (scale * vectors.col(size - 1)).conjugate();
    Eigen::VectorXcf weights(size);
    {
      const RealtimeGuard guard;
      solvePrincipalComponent(signal, noise, weights);
      EXPECT_EQ(guard.violations() > 0, RealtimeGuard::active && size > 16) << size;
    }
    EXPECT_LT((weights.cast<std::complex<double>>() - expected).norm(), 2e-3 * expected.norm())
        << size;
  }
}

TEST(PrincipalComponent, OfBadMatricesIsNanOrTheFirstMicrophone) {
  Eigen::MatrixXcf good = Eigen::MatrixXcf::Identity(4, 4), bad = good;
  bad(2, 1) = std::numeric_limits<float>::quiet_NaN();
  Eigen::VectorXcf weights(4);
  solvePrincipalComponent(bad, good, weights);
  EXPECT_TRUE(std::isnan(weights[0].real()));
  solvePrincipalComponent(good, bad, weights);
  EXPECT_TRUE(std::isnan(weights[0].real()));
  const Eigen::MatrixXcf twins = Eigen::MatrixXcf::Constant(4, 4, 0.25F);  // equal microphones
  solvePrincipalComponent(twins, twins, weights);
  EXPECT_NEAR(std::abs(weights.sum() - ComplexFloat(1.0F)), 0.0F, 1e-3F);
}

enum class Kind { Ordinary, NearlyEqual, Equal, RankOneSignal, SingularNoise, Zero, NotFinite };

Pair pairOf(Kind kind, int size, float level, std::mt19937& random) {
  Pair pair;
  pair.noise = covariance(size, kind == Kind::SingularNoise ? size - 1 : 8 * size, random);
  const Eigen::MatrixXcf source = covariance(size, 1, random);
  pair.signal = pair.noise + 3.0F * source;
  if (kind == Kind::NearlyEqual) pair.signal = pair.noise + 1e-3F * covariance(size, 8, random);
  if (kind == Kind::Equal) pair.signal = pair.noise;
  if (kind == Kind::RankOneSignal) pair.signal = source;
  if (kind == Kind::Zero) pair.signal = pair.noise = 0.0F * source;
  pair.signal *= level;
  pair.noise *= level;
  if (kind == Kind::NotFinite) {
    const float broken[] = {std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity()};
    (random() % 2 ? pair.signal : pair.noise)(size - 1, random() % 2) = broken[random() % 2];
  }
  return pair;
}

void setLowerTriangle(CovariancePlanes& planes, int bin, const Eigen::MatrixXcf& matrix) {
  Eigen::Index plane = 0;
  for (Eigen::Index column = 0; column < matrix.cols(); ++column) {
    planes.planes(bin, plane++) = matrix(column, column).real();
    for (Eigen::Index row = column + 1; row < matrix.rows(); ++row) {
      planes.planes(bin, plane++) = matrix(row, column).real();
      planes.planes(bin, plane++) = matrix(row, column).imag();
    }
  }
}

// Power that the difference of two weights lets through, in decibels to that of the second.
float outputError(const Eigen::VectorXcf& weights, const Eigen::VectorXcf& expected,
                  const Eigen::MatrixXcf& signal) {
  const Eigen::MatrixXcd A = signal.cast<std::complex<double>>();
  const auto power = [&](const Eigen::VectorXcf& w) {
    const Eigen::VectorXcd v = w.conjugate().cast<std::complex<double>>();
    return v.dot(A * v).real();
  };
  return decibels(static_cast<float>(power(weights - expected) / power(expected) + 1e-20));
}

class PrincipalVectors : public testing::TestWithParam<std::pair<Kind, float>> {};

// Of a beamformer whose covariances stand still, all bins in one frame, across the last one.
TEST_P(PrincipalVectors, GiveTheOutputOfTheSolver) {
  const auto [kind, level] = GetParam();
  for (const InstructionSet set : {InstructionSet::Base, InstructionSet::Avx2}) {
    const ScopedInstructionSet scope(set);
    for (int size = 2; size <= 9; ++size) {
      std::mt19937 random(static_cast<unsigned>(size));
      BeamformerAdaptive beam(size, bins);
      beam.adaptationMode = BeamformerAdaptive::freezeBoth;
      std::vector<Pair> pairs;
      for (int k = 0; k < bins; ++k) {
        pairs.push_back(pairOf(kind, size, level, random));
        setLowerTriangle(beam.signalCovariance, k, pairs.back().signal);
        setLowerTriangle(beam.noiseCovariance, k, pairs.back().noise);
      }
      beam.binsPerFrame = bins;
      beam.nextBin = 100;
      Eigen::ArrayXcf output(bins);
      beam.process(Eigen::ArrayXXcf::Zero(bins, size).eval(), output);

      float worst = -200.0F;
      for (int k = 0; k < bins; ++k) {
        Eigen::VectorXcf expected(size), weights(size);
        Pair& pair = pairs[static_cast<std::size_t>(k)];
        pair.signal.diagonal().array() += 1e-16F;
        pair.noise.diagonal().array() += 1e-17F;
        solvePrincipalComponent(pair.signal, pair.noise, expected);
        for (int m = 0; m < size; ++m) weights[m] = beam.weights.at(k, m);
        ASSERT_EQ(weights.allFinite(), expected.allFinite()) << size << " microphones, bin " << k;
        if (expected.allFinite() && !expected.isZero(0.0F))
          worst = std::max(worst, outputError(weights, expected, pair.signal));
      }
      EXPECT_LT(worst, -100.0F) << size << " microphones, " << nameOf(set);
    }
  }
}
INSTANTIATE_TEST_SUITE_P(
    Pairs, PrincipalVectors,
    testing::Values(std::pair{Kind::Ordinary, 1.0F}, std::pair{Kind::Ordinary, 1e18F},
                    std::pair{Kind::Ordinary, 1e-15F}, std::pair{Kind::Ordinary, 1e-25F},
                    std::pair{Kind::RankOneSignal, 1.0F}, std::pair{Kind::NearlyEqual, 1.0F},
                    std::pair{Kind::Equal, 1.0F}, std::pair{Kind::SingularNoise, 1.0F},
                    std::pair{Kind::Zero, 1.0F}, std::pair{Kind::NotFinite, 1.0F}));

// Two largest eigenvalues too close to each other, the second pivot of the noise too small.
TEST(PrincipalComponent, IsLeftToTheSolverWhereNearlyUndecided) {
  // `most`: microphones that are solved in lanes.
  for (const auto& [excess, pivot, most] : {std::tuple{0.004F, 1.0F, 0},
                                            {0.006F, 1.0F, 2},
                                            {0.012F, 1.0F, 8},
                                            {1.0F, 8e-5F, 0},
                                            {1.0F, 1.2e-4F, 8}})
    for (const float level : {1.0F, 1e18F, 1e-25F})
      for (int size = 2; size <= 9; ++size) {
        CovariancePlanes signal(1, size, level), noise(1, size, level);
        signal.planes(0, 0) *= 1.0F + excess;
        noise.planes(0, 1) = level * std::sqrt(1.0F - pivot);
        SpectrumPlanes weights(1, size);
        EXPECT_EQ(principalVectorKernels().solve(
                      {signal.planes.data(), noise.planes.data(), planeRows(1), 0.0F, 0.0F}, size,
                      1, weights.real.data(), weights.imaginary.data()),
                  size <= most ? 0U : 1U)
            << size << ' ' << excess << ' ' << pivot << ' ' << level;
      }
}

}  // namespace
}  // namespace vellumic
