// Activity estimate and beamformer in double, from their equations, beside those in float.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "array/BeamformerAdaptive.h"
#include "array/PrincipalComponent.h"
#include "platform/InstructionSet.h"

namespace vellumic {
namespace {

using Complex = std::complex<double>;
using Reals = std::vector<double>;

class BeamformerModels : public testing::TestWithParam<InstructionSet> {
  ScopedInstructionSet set_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Sets, BeamformerModels,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2));

struct ActivityModel {
  explicit ActivityModel(std::size_t bins) : noise(bins, 1e-5), smoothed(bins, 0.5) {}

  Reals process(const Reals& P) {
    const double xi = std::pow(10.0, 1.5);
    Reals probability(P.size());
    for (std::size_t k = 0; k < P.size(); ++k) {
      const double e =
          std::exp(std::min(xi / (1.0 + xi) * P[k] / noise[k] - std::log(1.0 + xi), 25.0));
      double& p = probability[k] = e / (e + 1.0);
      smoothed[k] += (1.0 - std::exp(-1.0 / (125.0 * 0.152))) * (p - smoothed[k]);
      if (smoothed[k] > 0.99) p = std::min(p, 0.99);
      noise[k] += (1.0 - p) * (1.0 - std::exp(-1.0 / (125.0 * 0.072))) * (P[k] - noise[k]);
    }
    return probability;
  }
  Reals noise, smoothed;
};

double mean(const Reals& values) {
  double sum = 0.0;
  for (double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

struct BeamformerModel {
  BeamformerModel(int microphones, int bins, const BeamformerSettings& theSettings, int theMode)
      : settings(theSettings),
        mode(theMode),
        estimators(static_cast<std::size_t>(microphones),
                   ActivityModel(static_cast<std::size_t>(bins))) {
    const auto white = Eigen::MatrixXcd::Identity(microphones, microphones);
    signal.assign(static_cast<std::size_t>(bins), 1e-5 * white);
    noise.assign(static_cast<std::size_t>(bins), 1e-6 * white);
    weights = Eigen::MatrixXcd::Zero(bins, microphones);
    weights.col(0).setOnes();
  }

  Eigen::VectorXcd process(const Eigen::MatrixXcd& x) {
    const Eigen::Index bins = x.rows();
    active = false;
    Reals most(static_cast<std::size_t>(bins));
    for (Eigen::Index m = 0; m < x.cols(); ++m) {
      Reals power;
      for (Eigen::Index k = 0; k < bins; ++k) power.push_back(std::norm(x(k, m)));
      ActivityModel& estimator = estimators[static_cast<std::size_t>(m)];
      const Reals probability = estimator.process(power);
      for (std::size_t k = 0; k < most.size(); ++k) most[k] = std::max(most[k], probability[k]);
      if (mean(estimator.noise) * 1.5 * settings.thresholdScale < mean(power)) active = true;
    }
    const auto busy =
        std::ranges::count_if(most, [&](double p) { return p > 0.5 * settings.thresholdScale; });
    if (static_cast<double>(busy) / static_cast<double>(bins) > 0.15 * settings.thresholdScale)
      active = true;
    if (mode == BeamformerAdaptive::adaptFree) active = false;
    if (mode == BeamformerAdaptive::freezeNoise) active = true;

    const double rate = 1.0 - std::exp(-1.0 / (settings.covarianceTimeConstant * 125.0));
    for (Eigen::Index k = 0; k < bins && mode != BeamformerAdaptive::freezeBoth; ++k) {
      const Eigen::MatrixXcd now = x.row(k).transpose() * x.row(k).conjugate();
      signal[static_cast<std::size_t>(k)] += rate * (now - signal[static_cast<std::size_t>(k)]);
      if (!active)
        noise[static_cast<std::size_t>(k)] += rate * (now - noise[static_cast<std::size_t>(k)]);
    }
    for (Eigen::Index solves = bins * 8 / 125; solves > 0; --solves) {
      solve(next);
      next = (next + 1) % bins;
    }
    return x.cwiseProduct(weights).rowwise().sum();
  }

  void solve(Eigen::Index k) {
    const auto bin = static_cast<std::size_t>(k);
    Eigen::VectorXcf solution(weights.cols());
    solvePrincipalComponent(signal[bin].cast<std::complex<float>>().eval(),
                            noise[bin].cast<std::complex<float>>().eval(), solution);
    weights.row(k) = solution.cast<Complex>().transpose();
  }

  BeamformerSettings settings;
  int mode;
  std::vector<ActivityModel> estimators;
  std::vector<Eigen::MatrixXcd> signal, noise;
  Eigen::MatrixXcd weights;
  Eigen::Index next = 0;
  bool active = false;
};

// A talker, for long steady and then of wandering level, from one side, noise from another, noise
// of each microphone.
TEST_P(BeamformerModels, TheBeamformerFollowsItsEquations) {
  constexpr int bins = 60;  // 9 of them are the threshold itself
  struct Case {
    int microphones;
    float scale;
    int mode;
  };
  for (const auto& [microphones, scale, mode] :
       {Case{2, 1.0F, BeamformerAdaptive::byActivity},
        Case{5, 1.3F, BeamformerAdaptive::byActivity}, Case{2, 1.0F, BeamformerAdaptive::adaptFree},
        Case{2, 1.0F, BeamformerAdaptive::freezeNoise},
        Case{3, 1.0F, BeamformerAdaptive::freezeBoth}}) {
    SCOPED_TRACE(mode);
    const BeamformerSettings settings{.covarianceTimeConstant = 2.0F, .thresholdScale = scale};
    BeamformerAdaptive beamformer(microphones, bins);
    beamformer.apply(settings);
    beamformer.adaptationMode = mode;
    BeamformerModel model(microphones, bins, settings, mode);
    std::mt19937 random(9);
    std::normal_distribution<double> normal;
    const auto draw = [&] { return Complex(normal(random), normal(random)); };
    for (int frame = 0; frame < 600; ++frame) {
      const double level = frame < 150 ? 2.5 : std::max(0.0, 2.5 * std::sin(0.05 * frame));
      Eigen::MatrixXcf x(bins, microphones);
      for (int k = 0; k < bins; ++k) {
        const Complex talker = level * draw(), other = draw();
        for (int m = 0; m < microphones; ++m)
          x(k, m) =
              std::complex<float>(0.01 * (std::polar(1.0, 0.1 * k * m) * (k < 30 ? talker : 0.0) +
                                          std::polar(1.0, -0.2 * k * m) * other + 0.3 * draw()));
      }
      Eigen::ArrayXcf beside = Eigen::ArrayXcf::Ones(bins + 8);
      Eigen::Ref<Eigen::ArrayXcf> output = beside.head(bins);
      beamformer.process(x.array(), output);
      ASSERT_TRUE((beside.tail(8) == 1.0F).all());
      const Eigen::VectorXcd expected = model.process(x.cast<Complex>());
      ASSERT_EQ(beamformer.signalActive, model.active) << frame;
      ASSERT_LE((output.matrix().cast<Complex>() - expected).norm(), 1e-3 * expected.norm())
          << frame;
      const ActivityEstimator& estimator = beamformer.estimators[1];
      for (int k = 0; k < bins; ++k) {
        const auto bin = static_cast<std::size_t>(k);
        const double noise = model.estimators[1].noise[bin];
        ASSERT_NEAR(estimator.noisePower[k], noise, 1e-4 * noise);
        ASSERT_NEAR(estimator.smoothedProbability[k], model.estimators[1].smoothed[bin], 1e-4);
        const double S = model.signal[bin](1, 1).real(), N = model.noise[bin](1, 1).real();
        ASSERT_NEAR(beamformer.signalCovariance.at(k, 1, 1).real(), S, 1e-4 * S);
        ASSERT_NEAR(beamformer.noiseCovariance.at(k, 1, 1).real(), N, 1e-4 * N);
      }
    }
    EXPECT_EQ(beamformer.nextBin, model.next);
  }
}

}  // namespace
}  // namespace vellumic
