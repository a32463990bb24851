// The canceller of one microphone in double, from its equations, beside the one in float.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <span>
#include <vector>

#include "echo/EchoCanceller.h"
#include "platform/InstructionSet.h"
#include "tests/support/PlainTransform.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic::testing {
namespace {

using Complex = std::complex<double>;

// Two loudspeakers, sparse echo paths shorter than a block, two microphones that hear the same.
class EchoScene {
 public:
  struct Levels {
    float left = 1.0F, right = 0.7F;  // standard deviation
    float shared = 0.8F;              // of a signal that both loudspeakers play
    float near = 0.01F;               // talker or noise at the microphone
    bool muted = false;               // the first microphone delivers zeros
  };

  explicit EchoScene(int blockLength) : length(static_cast<std::size_t>(blockLength)) {
    for (auto& reference : references) reference.resize(2 * length);
    for (auto* samples : {&microphone, &second}) samples->resize(length);
    for (std::size_t r = 0; r < 2; ++r)
      for (std::size_t i = 0; i < 24; ++i) {
        const std::size_t delay = length / 10 + 7 * i % (length / 2);
        paths[r].emplace_back(delay, 0.4F * noise() * std::exp(-0.15F * static_cast<float>(i)));
      }
  }

  // One block further; the references' new samples are the second half.
  void advance(const Levels& levels) {
    for (auto& reference : references)
      std::copy(reference.begin() + static_cast<std::ptrdiff_t>(length), reference.end(),
                reference.begin());
    for (std::size_t i = 0; i < length; ++i) {
      const float shared = levels.shared * noise();
      references[0][length + i] = levels.left * noise() + shared;
      references[1][length + i] = levels.right * noise() + shared;
    }
    for (std::size_t i = 0; i < length; ++i) {
      float echo = 0.0F;
      for (std::size_t r = 0; r < 2; ++r)
        for (const auto& [delay, gain] : paths[r]) echo += gain * references[r][length + i - delay];
      second[i] = echo + levels.near * noise();
      microphone[i] = levels.muted ? 0.0F : second[i];
    }
  }
  std::span<const float> reference(std::size_t r) const {
    return std::span(references[r]).subspan(length);
  }
  float noise() { return normal(engine); }

  std::size_t length;
  std::array<std::vector<std::pair<std::size_t, float>>, 2> paths;  // delays, gains
  std::array<std::vector<float>, 2> references;
  std::vector<float> microphone, second;

 private:
  std::minstd_rand engine{7};
  std::normal_distribution<float> normal;
};

class EchoModel {
 public:
  explicit EchoModel(std::size_t blockLength, const EchoCancellerSettings& theSettings)
      : settings(theSettings), n(blockLength), long_(2 * n), short_(n) {
    setup();
  }

  void setup() {
    filters = {};
    for (Filter& f : filters) {
      f.W.assign(n + 1, 0.0);
      f.A.assign(n + 1, 1.0);
      f.Q = f.P = Reals(n + 1);
      f.previous = f.current = Reals(n);
    }
    cross_.assign(n + 1, 0.0);
    T.assign(n + 1, 10.0);
    error_ = previousError_ = overlap_ = Reals(n);
    R = Reals(n / 2 + 1);
    coupling.assign(n / 2 + 1, 0.001);
  }

  Reals process(const EchoScene& scene, const std::vector<float>& microphone) {
    for (std::size_t r = 0; r < 2; ++r) {
      filters[r].previous = filters[r].current;
      filters[r].current.assign(scene.reference(r).begin(), scene.reference(r).end());
      filters[r].X = long_.forward(joined(filters[r].previous, filters[r].current));
    }
    cancel(Reals(microphone.begin(), microphone.end()));
    checkHealth();
    return suppress();
  }

  struct Filter {
    Spectrum W, X;
    Reals A, Q, P, previous, current;
  };
  EchoCancellerSettings settings;
  std::array<Filter, 2> filters;
  Reals T, R, coupling;
  bool converged = false;
  double covarianceEnergy = 0.0, longTermLevel = 0.0;
  int startedOver = 0;

 private:
  static Reals joined(const Reals& a, const Reals& b) {
    Reals both = a;
    both.insert(both.end(), b.begin(), b.end());
    return both;
  }
  static double energyOf(const Reals& x) {
    double sum = 0.0;
    for (double v : x) sum += v * v;
    return sum;
  }

  void cancel(const Reals& microphone) {
    Reals echo(n);
    for (const Filter& f : filters) {
      Spectrum product(n + 1);
      for (std::size_t k = 0; k <= n; ++k) product[k] = f.X[k] * f.W[k];
      const Reals time = long_.inverse(product);
      for (std::size_t i = 0; i < n; ++i) echo[i] += time[n + i];
    }
    previousError_ = error_;
    for (std::size_t i = 0; i < n; ++i) error_[i] = microphone[i] - echo[i];
    energy_ = energyOf(microphone);
    const Spectrum M = long_.forward(joined(Reals(n), microphone)),
                   Y = long_.forward(joined(Reals(n), echo));
    const double p = settings.powerSmoothing;
    const bool warm = counter_ > settings.warmupBlocks;
    if (!warm) ++counter_;
    for (std::size_t k = 0; k <= n; ++k) {
      for (Filter& f : filters) f.P[k] = (1.0 - p) * std::norm(f.X[k]) + p * f.P[k];
      cross_[k] = p * cross_[k] + (1.0 - p) * filters[0].X[k] * std::conj(filters[1].X[k]);
      if (!warm) continue;
      const double residual =
          (1.0 - p) * std::max(std::norm(M[k]) - std::norm(Y[k]), 1e-5) + p * T[k];
      const bool settled = filters[0].Q[k] + filters[1].Q[k] < settings.updateThreshold;
      T[k] = settled ? residual : std::max(0.1, p * T[k]);
    }
    for (std::size_t r = 0; r < 2; ++r) adapt(filters[r], filters[1 - r], M, Y);
  }

  void adapt(Filter& f, const Filter& other, const Spectrum& M, const Spectrum& Y) {
    const double factor = settings.crossFactor;
    Spectrum update(n + 1);
    for (std::size_t k = 0; k <= n; ++k) {
      const double coherence =
          std::norm(cross_[k]) / std::pow(std::sqrt(f.P[k] * other.P[k]) + 1e-10, 2);
      const double G = f.P[k] * (1.0 - factor * factor * coherence);
      const Complex D =
          std::conj(f.X[k]) - factor * cross_[k] / (other.P[k] + 1e-10) * std::conj(other.X[k]);
      const double C = f.A[k] + f.Q[k], limit = 4.0 / std::max(G * G, 1e-10);
      double H = C / (3.0 * C * G + T[k]);
      if (H * H >= limit) H = std::sqrt(limit);
      f.A[k] = (1.0 - H * G) * C;
      update[k] = D * H * (M[k] - Y[k]);
    }
    Reals gradient = long_.inverse(update);
    std::fill(gradient.begin() + static_cast<std::ptrdiff_t>(n), gradient.end(), 0.0);
    update = long_.forward(gradient);
    for (std::size_t k = 0; k <= n; ++k) {
      f.W[k] += update[k];
      f.Q[k] = (1.0 - settings.filterPole) * std::norm(update[k]) + settings.filterPole * f.Q[k];
    }
  }

  void checkHealth() {
    covarianceEnergy =
        (energyOf(filters[0].A) + energyOf(filters[1].A)) / static_cast<double>(n + 1);
    if (!converged) {
      int settled = 0, moving = 0;
      for (std::size_t k = 0; k <= n; ++k) {
        const double updatePower = filters[0].Q[k] + filters[1].Q[k];
        settled += updatePower < settings.updateThreshold;
        moving += updatePower > 1e-5;
      }
      converged = moving > 0 && settled > std::lround(0.95 * static_cast<double>(n));
    }
    if (!converged || energyOf(error_) <= energy_ + 70.0) return;
    setup();
    ++startedOver;
  }

  Reals suppress() {
    Reals clean(n);
    const std::size_t half = n / 2;
    const auto step = static_cast<std::ptrdiff_t>(half);
    double meanT = 0.0;
    for (double t : T) meanT += t / static_cast<double>(n + 1);
    const Reals errors = joined(previousError_, error_);
    Reals sums(2 * n);
    for (const Filter& f : filters)
      for (std::size_t i = 0; i < n; ++i) {
        sums[i] += f.previous[i];
        sums[n + i] += f.current[i];
      }
    for (std::ptrdiff_t pass = 0; pass < 2; ++pass) {
      const auto frame = [&](const Reals& from) {
        Reals samples(from.begin() + step * (1 + pass), from.begin() + step * (3 + pass));
        for (std::size_t i = 0; i < n; ++i)
          samples[i] *= (1.0 - std::cos(2.0 * std::numbers::pi * static_cast<double>(i) /
                                        static_cast<double>(n - 1))) /
                        2.0;
        return short_.forward(samples);
      };
      Spectrum E = frame(errors);
      const Spectrum F = frame(sums);
      longTermLevel = settings.levelSmoothing * longTermLevel +
                      (1.0 - settings.levelSmoothing) * energy_ / static_cast<double>(n);
      for (std::size_t k = 0; k <= half; ++k) {
        R[k] = settings.referenceSmoothing * R[k] +
               (1.0 - settings.referenceSmoothing) * std::abs(F[k]);
        const double leak = coupling[k] * R[k], magnitude = std::abs(E[k]);
        const double gain = 1.0 - leak * leak * longTermLevel * settings.overSubtraction /
                                      std::max(magnitude * magnitude, 1e-10);
        coupling[k] += settings.couplingStep / (meanT + 1.0) * (magnitude - leak * coupling[k]);
        coupling[k] = std::clamp(coupling[k], 0.0, 1000.0);
        E[k] *= std::min(std::max(gain, static_cast<double>(settings.suppressionFloor)), 1.0);
      }
      const Reals suppressed = short_.inverse(E);
      for (std::size_t i = 0; i < half; ++i)
        clean[static_cast<std::size_t>(pass) * half + i] = overlap_[half + i] + suppressed[i];
      overlap_ = suppressed;
    }
    return clean;
  }

  std::size_t n;
  PlainTransform long_, short_;
  Spectrum cross_;
  Reals error_, previousError_, overlap_;
  double energy_ = 0.0;
  int counter_ = 0;
};

EchoCancellerSettings otherSettings() {
  EchoCancellerSettings s;
  s.powerSmoothing = 0.6F;
  s.filterPole = 0.5F;
  s.overSubtraction = 4.0F;
  s.couplingStep = 0.05F;
  s.referenceSmoothing = 0.5F;
  s.levelSmoothing = 0.9F;
  s.suppressionFloor = 0.1F;
  s.crossFactor = 0.6F;
  s.updateThreshold = 3e-3F;
  s.warmupBlocks = 3;
  return s;
}

struct ModelCase {
  EchoCancellerSettings settings;
  int blockLength;
  InstructionSet set;
  float rampStart;  // loudness of the first block; it grows from block to block
};
class EchoModels : public ::testing::TestWithParam<ModelCase> {};

// Sound from two loudspeakers with much in common, talk, pauses, and now and then a dead microphone
// whose loss makes the echo estimate louder than the microphone by 20 to 120 in energy. It starts
// over alone, beside another that shares the references.
TEST_P(EchoModels, TheCancellersFollowTheirEquations) {
  const auto& [settings, blockLength, set, rampStart] = GetParam();
  const ScopedInstructionSet scope(set);
  EchoScene scene(blockLength);
  ReferenceSpectra references(blockLength);
  EchoCanceller canceller(blockLength), other(blockLength);
  EchoModel model(scene.length, settings), otherModel(scene.length, settings);
  const auto apply = [&](const EchoCancellerSettings& now) {
    references.apply(now);
    for (EchoCanceller* each : {&canceller, &other}) each->apply(now);
    for (EchoModel* each : {&model, &otherModel}) each->settings = now;
  };
  apply(settings);
  double difference = 0.0, heard = 0.0;
  const auto compare = [&](const std::vector<float>& output, const Reals& expected) {
    for (std::size_t i = 0; i < scene.length; ++i) {
      difference += std::pow(output[i] - expected[i], 2);
      heard += expected[i] * expected[i];
    }
  };
  for (int block = 0; block < 400; ++block) {
    if (block == 300) {
      EchoCancellerSettings others = settings;
      others.powerSmoothing = 0.8F;
      others.crossFactor = 0.5F;
      others.filterPole = 0.6F;
      apply(others);
    }
    EchoScene::Levels levels;
    if (block > 100 && block % 100 > 80) levels.near = 0.5F;
    const float fadedIn = std::min(1.0F, rampStart * std::pow(1.06F, static_cast<float>(block)));
    for (float* level : {&levels.left, &levels.right, &levels.shared, &levels.near})
      *level *= fadedIn;
    if (block % 130 > 120) levels.left = levels.right = levels.shared = 0.0F;
    levels.muted = block % 20 == 10 && (block < 60 || block > 130);
    scene.advance(levels);
    std::vector<float> output(scene.length), otherOutput(scene.length);
    {
      const RealtimeGuard guard;
      references.advance(scene.reference(0), scene.reference(1));
      canceller.process(references, scene.microphone, output);
      other.process(references, scene.second, otherOutput);
      EXPECT_EQ(guard.violations(), 0) << guard.first();
    }
    compare(output, model.process(scene, scene.microphone));
    compare(otherOutput, otherModel.process(scene, scene.second));
    ASSERT_EQ(canceller.converged, model.converged) << block;
    ASSERT_NEAR(canceller.covarianceEnergy, model.covarianceEnergy, 1e-4 * model.covarianceEnergy)
        << block;
    ASSERT_NEAR(canceller.suppressor.longTermLevel, model.longTermLevel, 1e-6) << block;
    for (std::size_t k = 0; k <= scene.length; ++k) {
      const auto bin = static_cast<Eigen::Index>(k);
      ASSERT_NEAR(canceller.noisePower[bin], model.T[k], 1e-3 * model.T[k]) << block << ' ' << k;
    }
  }
  EXPECT_GE(model.startedOver, 1);
  EXPECT_EQ(otherModel.startedOver, 0);
  EXPECT_TRUE(otherModel.converged);
  EXPECT_LT(difference, 1e-10 * heard);
}
INSTANTIATE_TEST_SUITE_P(
    Settings, EchoModels,
    ::testing::Values(ModelCase{{}, 64, InstructionSet::Avx2, 1.0F},
                      ModelCase{{}, 64, InstructionSet::Avx2, 0.003F},
                      ModelCase{otherSettings(), 60, InstructionSet::Avx2, 1.0F},
                      ModelCase{otherSettings(), 60, InstructionSet::Base, 0.003F}));

}  // namespace
}  // namespace vellumic::testing
