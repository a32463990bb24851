// The canceller of one microphone in double, from its equations, beside the one in float.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <span>
#include <unsupported/Eigen/FFT>
#include <utility>
#include <vector>

#include "echo/EchoCanceller.h"
#include "platform/InstructionSet.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic::testing {
namespace {

using Eigen::ArrayXcd, Eigen::ArrayXd, Eigen::ArrayXf, Eigen::Index;

auto samplesOf(auto&& column) {
  return std::span(column.data(), static_cast<std::size_t>(column.size()));
}

// Two loudspeakers, sparse echo paths shorter than a block, two microphones that hear the same.
class EchoScene {
 public:
  struct Levels {
    float left = 1.0F, right = 0.7F;  // standard deviation
    float shared = 0.8F;              // of a signal that both loudspeakers play
    float near = 0.01F;               // talker or noise at the microphone
    bool muted = false;               // the first microphone delivers zeros
  };

  explicit EchoScene(Index blockLength)
      : length(blockLength),
        references(Eigen::ArrayXXf::Zero(2 * length, 2)),
        microphone(length),
        second(length) {
    for (auto& path : paths)
      for (Index i = 0; i < 24; ++i) {
        const Index delay = length / 10 + 7 * i % (length / 2);
        path.emplace_back(delay, 0.4F * noise() * std::exp(-0.15F * static_cast<float>(i)));
      }
  }

  void advance(const Levels& levels) {
    references.topRows(length) = references.bottomRows(length).eval();
    for (Index i = length; i < 2 * length; ++i) {
      const float shared = levels.shared * noise();
      references(i, 0) = levels.left * noise() + shared;
      references(i, 1) = levels.right * noise() + shared;
    }
    for (float& sample : second) sample = levels.near * noise();
    for (Index r : {0, 1})
      for (const auto& [delay, gain] : paths[static_cast<std::size_t>(r)])
        second += gain * references.col(r).segment(length - delay, length);
    microphone = second * (levels.muted ? 0.0F : 1.0F);
  }
  auto reference(Index r) const { return references.col(r).tail(length); }  // the latest block
  float noise() { return normal(engine); }

  Index length;
  std::array<std::vector<std::pair<Index, float>>, 2> paths;  // delays, gains
  Eigen::ArrayXXf references;                                 // two blocks of each
  ArrayXf microphone, second;

 private:
  std::minstd_rand engine{7};
  std::normal_distribution<float> normal;
};

// Values of the same size, each to a thousandth; those below a share of the greatest beside that.
bool near(const ArrayXf& values, const ArrayXd& expected, double share = 1e-3) {
  if (values.size() != expected.size()) return false;
  const ArrayXd scale = expected.abs() + share * expected.abs().maxCoeff();
  return ((values.cast<double>() - expected).abs() <= 1e-3 * scale).all();
}

class EchoModel {
 public:
  EchoModel(Index blockLength, const EchoCancellerSettings& theSettings)
      : settings(theSettings), n(blockLength) {
    fft_.SetFlag(Eigen::FFT<double>::HalfSpectrum);
    setup();
  }

  void setup() {
    for (Filter& f : filters) {
      f.W.setZero(n + 1);
      f.A.setOnes(n + 1);
      for (ArrayXd* power : {&f.Q, &f.P}) power->setZero(n + 1);
      for (ArrayXd* samples : {&f.previous, &f.current}) samples->setZero(n);
    }
    cross_.setZero(n + 1);
    T.setConstant(n + 1, 10.0);
    for (ArrayXd* samples : {&error_, &previousError_, &overlap_}) samples->setZero(n);
    R.setZero(n / 2 + 1);
    coupling.setConstant(n / 2 + 1, 0.001);
  }

  ArrayXd process(const EchoScene& scene, const ArrayXf& microphone) {
    for (std::size_t r = 0; r < 2; ++r) {
      filters[r].previous = filters[r].current;
      filters[r].current = scene.reference(static_cast<Index>(r)).cast<double>();
      filters[r].X = forward(joined(filters[r].previous, filters[r].current));
    }
    cancel(microphone.cast<double>());
    checkHealth();
    return suppress();
  }

  struct Filter {
    ArrayXcd W, X;
    ArrayXd A, Q, P, previous, current;
  };
  EchoCancellerSettings settings;
  std::array<Filter, 2> filters;
  ArrayXd T, R, coupling, suppression;
  bool converged = false;
  double covarianceEnergy = 0.0, longTermLevel = 0.0;
  int startedOver = 0;

 private:
  static ArrayXd joined(const ArrayXd& a, const ArrayXd& b) {
    ArrayXd both(a.size() + b.size());
    both << a, b;
    return both;
  }
  ArrayXcd forward(const Eigen::VectorXd& samples) {
    Eigen::VectorXcd bins;
    fft_.fwd(bins, samples);
    return bins;
  }
  ArrayXd inverse(const Eigen::VectorXcd& bins) {
    Eigen::VectorXd samples;
    fft_.inv(samples, bins);
    return samples;
  }

  void cancel(const ArrayXd& microphone) {
    auto& [left, right] = filters;
    const ArrayXd echo = inverse(left.X * left.W + right.X * right.W).tail(n),
                  zeros = ArrayXd::Zero(n);
    previousError_ = error_;
    error_ = microphone - echo;
    energy_ = microphone.square().sum();
    const ArrayXcd M = forward(joined(zeros, microphone)), Y = forward(joined(zeros, echo));
    const double p = settings.powerSmoothing;
    for (Filter& f : filters) f.P = (1.0 - p) * f.X.abs2() + p * f.P;
    cross_ = p * cross_ + (1.0 - p) * left.X * right.X.conjugate();
    if (counter_ > settings.warmupBlocks) {
      const ArrayXd residual = (1.0 - p) * (M.abs2() - Y.abs2()).max(1e-5) + p * T;
      T = (left.Q + right.Q < settings.updateThreshold).select(residual, (p * T).max(0.1));
    } else {
      ++counter_;
    }
    adapt(left, right, M - Y);
    adapt(right, left, M - Y);
  }

  void adapt(Filter& f, const Filter& other, const ArrayXcd& error) {
    const double factor = settings.crossFactor, pole = settings.filterPole;
    const ArrayXd coherence = cross_.abs2() / ((f.P * other.P).sqrt() + 1e-10).square();
    const ArrayXd G = f.P * (1.0 - factor * factor * coherence), C = f.A + f.Q,
                  prior = C / (3.0 * C * G + T), limit = 2.0 / G.abs().max(1e-5),
                  H = (prior.abs() >= limit).select(limit, prior);
    const ArrayXcd D = f.X.conjugate() - factor * cross_ / (other.P + 1e-10) * other.X.conjugate();
    f.A = (1.0 - H * G) * C;
    ArrayXd gradient = inverse(D * H * error);
    gradient.tail(n).setZero();
    const ArrayXcd update = forward(gradient);
    f.W += update;
    f.Q = (1.0 - pole) * update.abs2() + pole * f.Q;
  }

  void checkHealth() {
    const auto& [left, right] = filters;
    covarianceEnergy = (left.A.square() + right.A.square()).mean();
    const ArrayXd moves = left.Q + right.Q;
    const auto settled = (moves < settings.updateThreshold).count();
    if ((moves > 1e-5).any() && settled > std::lround(0.95 * static_cast<double>(n)))
      converged = true;
    if (!converged || error_.square().sum() <= energy_ + 70.0) return;
    setup();
    ++startedOver;
  }

  ArrayXd suppress() {
    const auto& [left, right] = filters;
    const Index half = n / 2;
    const ArrayXd window = 0.5 - 0.5 * ArrayXd::LinSpaced(n, 0.0, 2.0 * std::numbers::pi).cos(),
                  errors = joined(previousError_, error_),
                  sums = joined(left.previous + right.previous, left.current + right.current);
    ArrayXd clean(n);
    for (Index pass : {0, 1}) {
      const Index at = half * (1 + pass);
      const ArrayXcd E = forward(errors.segment(at, n) * window),
                     F = forward(sums.segment(at, n) * window);
      longTermLevel = settings.levelSmoothing * longTermLevel +
                      (1.0 - settings.levelSmoothing) * energy_ / static_cast<double>(n);
      R = settings.referenceSmoothing * R + (1.0 - settings.referenceSmoothing) * F.abs();
      const ArrayXd leak = coupling * R;
      suppression =
          1.0 - leak.square() * longTermLevel * settings.overSubtraction / E.abs2().max(1e-10);
      suppression = suppression.max(settings.suppressionFloor).min(1.0);
      coupling += settings.couplingStep / (T.mean() + 1.0) * (E.abs() - leak * coupling);
      coupling = coupling.max(0.0).min(1000.0);
      const ArrayXd suppressed = inverse(E * suppression);
      clean.segment(half * pass, half) = overlap_.tail(half) + suppressed.head(half);
      overlap_ = suppressed;
    }
    return clean;
  }

  Index n;
  Eigen::FFT<double> fft_;
  ArrayXcd cross_;
  ArrayXd error_, previousError_, overlap_;
  double energy_ = 0.0;
  int counter_ = 0;
};

constexpr EchoCancellerSettings otherSettings{.powerSmoothing = 0.6F,
                                              .filterPole = 0.5F,
                                              .overSubtraction = 4.0F,
                                              .couplingStep = 0.05F,
                                              .referenceSmoothing = 0.5F,
                                              .levelSmoothing = 0.9F,
                                              .suppressionFloor = 0.1F,
                                              .crossFactor = 0.6F,
                                              .updateThreshold = 3e-3F,
                                              .warmupBlocks = 3};

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
  EchoModel model(blockLength, settings), otherModel(blockLength, settings);
  const auto apply = [&](const EchoCancellerSettings& now) {
    references.apply(now);
    for (EchoCanceller* each : {&canceller, &other}) each->apply(now);
    for (EchoModel* each : {&model, &otherModel}) each->settings = now;
  };
  apply(settings);
  EXPECT_EQ(canceller.covarianceEnergy, 0.0F);
  double difference = 0.0, heard = 0.0;
  const auto compare = [&](const ArrayXf& output, const ArrayXd& expected) {
    difference += (output.cast<double>() - expected).square().sum();
    heard += expected.square().sum();
  };
  for (int block = 0; block < 400; ++block) {
    if (block == 300) {
      EchoCancellerSettings others = settings;
      others.powerSmoothing = 0.8F;
      others.crossFactor = 0.5F;
      others.filterPole = 0.6F;
      others.updateThreshold = 0.0F;  // no bin ever settles
      apply(others);
    }
    if (block == 350) {  // replaced, as where the block length changes
      EchoCanceller next(blockLength);
      next.apply(model.settings);
      next.carryOver(canceller);
      EXPECT_EQ(next.covarianceEnergy, canceller.covarianceEnergy);
      canceller = std::move(next);
      model.setup();
    }
    if (block == 10) {  // up to the least that it follows or decays to
      canceller.noisePower.setZero();
      model.T.setZero();
    }
    EchoScene::Levels levels;
    if (block > 100 && block % 100 > 80) levels.near = 0.5F;
    const float fadedIn = std::min(1.0F, rampStart * std::pow(1.06F, static_cast<float>(block)));
    for (float* level : {&levels.left, &levels.right, &levels.shared, &levels.near})
      *level *= fadedIn;
    if (block % 130 > 120) levels.left = levels.right = levels.shared = 0.0F;
    levels.muted = block % 20 == 10 && (block < 60 || block > 130);
    scene.advance(levels);
    ArrayXf output(blockLength), otherOutput(blockLength);
    {
      const RealtimeGuard guard;
      references.advance(samplesOf(scene.reference(0)), samplesOf(scene.reference(1)));
      EXPECT_EQ(references.atStart(), block == 0);
      canceller.process(references, samplesOf(scene.microphone), samplesOf(output));
      other.process(references, samplesOf(scene.second), samplesOf(otherOutput));
      EXPECT_EQ(guard.violations(), 0) << guard.first();
    }
    compare(output, model.process(scene, scene.microphone));
    compare(otherOutput, otherModel.process(scene, scene.second));
    ASSERT_EQ(canceller.converged, model.converged) << block;
    ASSERT_NEAR(canceller.covarianceEnergy, model.covarianceEnergy, 1e-4 * model.covarianceEnergy)
        << block;
    ASSERT_NEAR(canceller.suppressor.longTermLevel, model.longTermLevel, 1e-6) << block;
    ASSERT_TRUE(near(canceller.noisePower, model.T, block > 10 ? 0.0 : 1e-3)) << block;
    ASSERT_TRUE(near(canceller.updatePower, model.filters[0].Q + model.filters[1].Q)) << block;
    ASSERT_TRUE(near(canceller.suppressor.referenceMagnitude, model.R)) << block;
    ASSERT_TRUE(near(canceller.suppressor.couplingGain, model.coupling)) << block;
    ASSERT_TRUE(near(canceller.suppressor.suppression, model.suppression)) << block;
    for (std::size_t r : {0U, 1U}) {
      ASSERT_TRUE(near(canceller.filters[r].weights.real, model.filters[r].W.real())) << block;
      ASSERT_TRUE(near(canceller.filters[r].posterior, model.filters[r].A)) << block;
    }
  }
  EXPECT_GE(model.startedOver, 1);
  EXPECT_EQ(otherModel.startedOver, 0);
  EXPECT_TRUE(otherModel.converged);
  EXPECT_LT(difference, 1e-10 * heard);
}
INSTANTIATE_TEST_SUITE_P(Settings, EchoModels,
                         ::testing::Values(ModelCase{{}, 64, InstructionSet::Avx2, 1.0F},
                                           ModelCase{{}, 64, InstructionSet::Avx2, 0.003F},
                                           ModelCase{otherSettings, 60, InstructionSet::Avx2, 1.0F},
                                           ModelCase{otherSettings, 60, InstructionSet::Base,
                                                     1e-6F}));

}  // namespace
}  // namespace vellumic::testing
