// Every stage of the array chain in double, from its equations, beside the one in float.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <span>
#include <vector>

#include "array/BeamformerAdaptive.h"
#include "array/NoisePostfilter.h"
#include "array/OutputLevelControl.h"
#include "array/PrincipalComponent.h"
#include "platform/InstructionSet.h"
#include "tests/array/Signals.h"
#include "tests/support/PlainTransform.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

using Complex = std::complex<double>;

class ArrayModels : public testing::TestWithParam<InstructionSet> {
  ScopedInstructionSet set_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Sets, ArrayModels,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2));

// --- level control

// A float, as the stages keep their poles: those of a minute differ from 1 in the last bits only.
double poleOf(float seconds) { return std::exp(-1.0F / (seconds * 16000.0F)); }

struct LevelModel {
  LevelStageSettings s;
  double envelope = 0.0, smoothed = 1.0, floor = 1.0;

  double gain(double x) {
    envelope += (1.0 - poleOf(s.envelopeTime)) * (std::abs(x) - envelope);
    const double clipped = std::max(envelope, 1e-10), knee = s.level * 2.0 / std::numbers::pi;
    const double target = clipped <= knee / s.makeupGain ? 1.0 : s.makeupGain * clipped / knee;
    smoothed +=
        (target - smoothed) * (1.0 - poleOf(target > smoothed ? s.attackTime : s.releaseTime));
    if (!s.floorEnabled) return s.makeupGain / smoothed;
    if (smoothed >= target * s.floorMargin)
      floor += (1.0 - poleOf(s.floorTime)) * (smoothed - floor);
    else
      floor = std::max(floor, smoothed);
    return s.makeupGain / std::max(smoothed, floor);
  }
};

// Noise whose level jumps eight times, over 80 dB; once the settings come again and change nothing.
// Runs of any length give the same bits.
TEST(LevelModels, TheLevelControlFollowsItsEquations) {
  std::array<LevelControlSettings, 7> cases;
  cases[1].levelStage = {3.0F, 0.2F, 0.002F, 0.01F, 0.05F, true, 0.1F, 1.3F};
  cases[1].limiterStage = {1.5F, 0.3F, 0.001F, 0.003F, 0.02F, true, 0.04F, 1.1F};
  cases[1].lookAheadTime = 0.001F;
  cases[2] = cases[1];
  cases[2].lookAheadEnabled = false;
  cases[3].limiterEnabled = false;
  cases[4].lookAheadTime = 0.0F;
  cases[5].lookAheadTime = 1e30F;
  cases[6].lookAheadTime = -1e30F;
  const std::size_t lookAheads[] = {64, 16, 0, 0, 1, 19200, 1};
  for (std::size_t c = 0; c < cases.size(); ++c) {
    LevelControlSettings& settings = cases[c];
    settings.levelControlEnabled = true;
    OutputLevelControl control, runs;
    control.apply(settings);
    runs.apply(settings);
    LevelModel level{settings.levelStage}, limiter{settings.limiterStage};
    std::deque<double> delayed(lookAheads[c]);
    const float levels[] = {0.0F, 0.3F, 1e-4F, 0.01F, 1.0F, 0.03F, 0.1F, 1e-3F};
    Eigen::ArrayXf noise = whiteNoise(8 * 4000, 1.0F, 40);
    const std::span samples(noise.data(), static_cast<std::size_t>(noise.size()));
    std::vector<float> outputs;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const float x = samples[i] *= levels[i / 4000];
      if (i == 11'000) control.apply(settings);
      control.process(x, outputs.emplace_back());
      double expected = x * level.gain(x);
      if (settings.limiterEnabled) {
        const double gain = limiter.gain(expected);
        delayed.push_back(expected);
        expected = gain * delayed.front();
        delayed.pop_front();
      }
      ASSERT_NEAR(outputs.back(), expected, 1e-3 * std::abs(expected) + 1e-9) << c << ' ' << i;
    }
    const RealtimeGuard guard;
    for (std::size_t at = 0, run = 1; at < outputs.size(); at += run, run = run * 7 % 301)
      runs.process(samples.subspan(at, std::min(run, outputs.size() - at)));
    EXPECT_EQ(guard.violations(), 0) << guard.first();
    EXPECT_TRUE(std::ranges::equal(samples, outputs)) << c;
    EXPECT_EQ(runs.levelStage.gain, control.levelStage.gain);
  }
}

// --- noise postfilter

struct PostfilterModel {
  explicit PostfilterModel(std::size_t bins) : n(bins), transform(2 * bins - 2) {
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
    Reals impulse = transform.inverse(passes);
    const std::size_t length = impulse.size();
    for (std::size_t i = 0; i < length; ++i) {
      const double place = static_cast<double>((i + length / 2) % length);
      impulse[i] *=
          0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * place / static_cast<double>(length - 1));
    }
    const Spectrum shaped = transform.forward(impulse);
    const auto energy = [&](const Spectrum& x) {
      double sum = -std::norm(x[0]) - std::norm(x[n - 1]);
      for (const Complex& value : x) sum += 2.0 * std::norm(value);
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
  PlainTransform transform;
  bool first = true;
  Reals S, minimumS, S2, minimumS2, biased, unbiased, clean;
  std::deque<Reals> historyS, historyS2;
};

// Noise that steps up and down, with bursts over some of the bins, and nearly silent for a while.
// New settings of the noise start its estimate over, those of the gain alone do not.
TEST_P(ArrayModels, ThePostfilterFollowsItsEquations) {
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
  model.g = otherGain;
  apply();
  run(10);
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

// --- activity and beamformer

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
    solvePrincipalComponent(signal[bin].cast<std::complex<float>>(),
                            noise[bin].cast<std::complex<float>>(), solution);
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

// A talker of wandering level from one side, noise from another, noise of each microphone.
TEST_P(ArrayModels, TheBeamformerFollowsItsEquations) {
  constexpr int bins = 65;
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
      const double level = std::max(0.0, 2.5 * std::sin(0.05 * frame));
      Eigen::MatrixXcf x(bins, microphones);
      for (int k = 0; k < bins; ++k) {
        const Complex talker = level * draw(), other = draw();
        for (int m = 0; m < microphones; ++m)
          x(k, m) =
              std::complex<float>(0.01 * (std::polar(1.0, 0.1 * k * m) * (k < 30 ? talker : 0.0) +
                                          std::polar(1.0, -0.2 * k * m) * other + 0.3 * draw()));
      }
      Eigen::ArrayXcf output(bins);
      beamformer.process(x.array(), output);
      const Eigen::VectorXcd expected = model.process(x.cast<Complex>());
      ASSERT_EQ(beamformer.signalActive, model.active) << frame;
      ASSERT_LE((output.matrix().cast<Complex>() - expected).norm(), 1e-3 * expected.norm())
          << frame;
      for (int k = 0; k < bins; ++k)
        ASSERT_NEAR(beamformer.estimators[1].noisePower[k],
                    model.estimators[1].noise[static_cast<std::size_t>(k)],
                    1e-4 * model.estimators[1].noise[static_cast<std::size_t>(k)]);
    }
    EXPECT_EQ(beamformer.nextBin, model.next);
  }
}

}  // namespace
}  // namespace vellumic
