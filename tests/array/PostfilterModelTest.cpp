// The noise postfilter in double, from its equations, beside the one in float.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <deque>
#include <numbers>
#include <unsupported/Eigen/FFT>
#include <vector>

#include "array/NoisePostfilter.h"
#include "platform/InstructionSet.h"
#include "tests/array/Signals.h"

namespace vellumic {
namespace {

using Reals = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;  // half

class PostfilterModels : public testing::TestWithParam<InstructionSet> {
  ScopedInstructionSet set_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Sets, PostfilterModels,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2));

struct PostfilterModel {
  explicit PostfilterModel(std::size_t bins) : n(bins) {
    fft.SetFlag(Eigen::FFT<double>::HalfSpectrum);
    for (Reals* values : {&S, &minimumS, &S2, &minimumS2, &biased, &unbiased, &clean})
      *values = Reals(n);
    restart();
  }

  // The histories as at the start.
  void restart() {
    for (auto* history : {&historyS, &historyS2})
      history->assign(static_cast<std::size_t>(e.windowFrames), Reals(n, 1.0));
  }

  Reals smooth(const Reals& x) const {
    Reals out(n);
    for (std::size_t k = 1; k + 1 < n; ++k) out[k] = 0.25 * x[k - 1] + 0.5 * x[k] + 0.25 * x[k + 1];
    out[0] = 0.5 * x[0] + 0.25 * x[1];
    out[n - 1] = 0.5 * x[n - 1] + 0.5 * x[n - 2];
    return out;
  }

  // The gain of a frame of these powers.
  Reals process(const Reals& P, bool reset) {
    const double decay = std::exp(-e.gamma1);
    const double beta =
        ((e.gamma1 - 1.3678794) + decay) / ((e.gamma1 + 2.0) * decay + (e.gamma1 - 2.1036384));
    if (reset)
      for (std::size_t k = 0; k < n; ++k) biased[k] = unbiased[k] = P[k] / beta;
    const Reals smoothed = smooth(P);
    Reals mask(n), masked(n);
    for (std::size_t k = 0; k < n; ++k) {
      S[k] = e.powerPole * S[k] + (1.0 - e.powerPole) * smoothed[k];
      minimumS[k] = std::min(minimumS[k], S[k]);
      const double floor = e.minimumBias * std::max(minimumS[k], 1e-10);
      mask[k] = P[k] / floor < e.gamma0 && S[k] / floor < e.zeta0;
      masked[k] = mask[k] * P[k];
    }
    mask = smooth(mask);
    masked = smooth(masked);
    for (std::size_t k = 0; k < n; ++k) {
      const double mean = mask[k] != 0.0 ? masked[k] / std::max(mask[k], 1e-10) : S2[k];
      S2[k] = e.powerPole * S2[k] + (1.0 - e.powerPole) * mean;
      minimumS2[k] = std::min(minimumS2[k], S2[k]);
      const double alpha = e.noisePole + (1.0 - e.noisePole) * presence(k, P[k]);
      unbiased[k] = (1.0 - alpha) * P[k] + alpha * unbiased[k];
      biased[k] = beta * unbiased[k];
    }
    slide(historyS, S, minimumS);
    slide(historyS2, S2, minimumS2);
    return gain(P);
  }

  double presence(std::size_t k, double P) const {
    const double floor = e.minimumBias * std::max(minimumS2[k], 1e-10);
    const double r = P / floor, z = S[k] / floor;
    if (r >= e.gamma1 || z >= e.zeta0) return 1.0;
    if (r <= 1.0) return 0.0;
    const double q = (e.gamma1 - r) / (e.gamma1 - 1.0), a = std::max(1.0 - q, 1e-10);
    const double noise = std::max(biased[k], 1e-10), gamma = P / noise;
    const double xi = std::max(
        (e.snrPole * clean[k] / noise + (1.0 - e.snrPole) * std::max(gamma - 1.0, 0.0)) / a,
        static_cast<double>(e.snrFloor));
    return 1.0 / (1.0 + q / a * (1.0 + xi) * std::exp(-gamma * xi / (xi + 1.0)));
  }

  void slide(std::deque<Reals>& history, const Reals& newest, Reals& minimum) const {
    history.pop_front();
    history.push_back(newest);
    minimum = newest;
    for (const Reals& frame : history)
      for (std::size_t k = 0; k < n; ++k) minimum[k] = std::min(minimum[k], frame[k]);
  }

  Reals gain(const Reals& P) {
    Spectrum passes(n);
    for (std::size_t k = 0; k < n; ++k) {
      const double noise = std::max(biased[k], 1e-10);
      const double xi = (first ? 0.0 : g.snrPole * clean[k] / noise) +
                        (1.0 - g.snrPole) * std::max(P[k] / noise - 1.0, 0.0);
      const double once = std::max<double>(g.floor1, std::pow(xi / (xi + g.offset1), g.exponent1));
      const double y = P[k] * once * once / noise;
      passes[k] = std::max<double>(g.floor2, std::pow(y / (y + g.offset2), g.exponent2));
    }
    first = false;
    Reals impulse;
    fft.inv(impulse, passes);
    const std::size_t length = impulse.size();
    for (std::size_t i = 0; i < length; ++i) {
      const double place = static_cast<double>((i + length / 2) % length);
      impulse[i] *=
          0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * place / static_cast<double>(length - 1));
    }
    Spectrum shaped;
    fft.fwd(shaped, impulse);
    const auto energy = [&](const Spectrum& x) {
      double sum = -std::norm(x[0]) - std::norm(x[n - 1]);
      for (const std::complex<double>& value : x) sum += 2.0 * std::norm(value);
      return sum;
    };
    Reals G(n);
    for (std::size_t k = 0; k < n; ++k) {
      G[k] = std::abs(shaped[k]) * std::sqrt(energy(passes) / energy(shaped));
      clean[k] = P[k] * G[k] * G[k];
    }
    return G;
  }

  NoiseEstimatorSettings e{};
  SpectralGainSettings g{};
  std::size_t n;
  Eigen::FFT<double> fft;
  bool first = true;
  Reals S, minimumS, S2, minimumS2, biased, unbiased, clean;
  std::deque<Reals> historyS, historyS2;
};

// Noise that steps up and down, with bursts over some of the bins, and nearly silent for a while.
// New settings of the noise start its estimate over, those of the gain alone do not.
TEST_P(PostfilterModels, ThePostfilterFollowsItsEquations) {
  constexpr int bins = 33;
  const NoiseEstimatorSettings otherNoise{.powerPole = 0.8F,
                                          .minimumBias = 1.3F,
                                          .zeta0 = 2.5F,
                                          .gamma0 = 3.0F,
                                          .gamma1 = 3.5F,
                                          .noisePole = 0.85F,
                                          .snrPole = 0.7F,
                                          .snrFloor = 0.1F,
                                          .windowFrames = 25};
  const SpectralGainSettings otherGain{.snrPole = 0.7F,
                                       .offset1 = 1.6F,
                                       .exponent1 = 0.8F,
                                       .floor1 = 0.1F,
                                       .offset2 = 0.7F,
                                       .exponent2 = 1.4F,
                                       .floor2 = 0.05F};
  NoisePostfilter filter;
  filter.setSize(bins - 1);
  PostfilterModel model(bins);
  bool reset = false;
  const auto run = [&](int frames) {
    for (int frame = 0; frame < frames; ++frame) {
      const Eigen::ArrayXf parts = whiteNoise(2 * bins, 1.0F, static_cast<unsigned>(frame));
      const float levels[] = {1.0F, 3.0F, 1.0F, 1e-5F, 2.0F}, level = levels[frame / 150];
      Eigen::ArrayXcf input(bins), output(bins);
      Reals powers;
      for (int k = 0; k < bins; ++k) {
        const bool burst = frame % 40 > 28 && k > 8 && k < 20;
        input[k] = std::complex(parts[2 * k], parts[2 * k + 1]) * (burst ? 3.0F * level : level);
        powers.push_back(std::norm(std::complex<double>(input[k])));
      }
      filter.process(input, output);
      const Reals gains = model.process(powers, reset && frame == 0);
      for (int k = 0; k < bins; ++k) {
        const auto bin = static_cast<std::size_t>(k);
        ASSERT_NEAR(filter.noiseEstimator.noiseBiased[k], model.biased[bin],
                    1e-4 * model.biased[bin])
            << frame << ' ' << k;
        ASSERT_LT(std::abs(output[k] - input[k] * static_cast<float>(gains[bin])),
                  1e-4F * std::abs(input[k]))
            << frame << ' ' << k;
      }
    }
  };
  run(700);
  const auto apply = [&] {
    reset = model.e != filter.noiseEstimator.settings();
    filter.applyParameters(model.e, model.g);
    if (reset) model.restart();
  };
  for (const float exponent : {0.0F, 1.4F}) {
    model.g = otherGain;
    model.g.exponent2 = exponent;
    apply();
    run(10);
  }
  model.e = otherNoise;
  for (const int window : {25, 1, 2, 7, 7}) {
    model.e.zeta0 += 0.1F;
    model.e.windowFrames = window;
    apply();
    run(window == 25 ? 700 : 60);
  }
  filter.reset();
  model.restart();
  model.first = reset = true;
  run(60);
}

}  // namespace
}  // namespace vellumic
