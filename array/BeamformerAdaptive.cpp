#include "array/BeamformerAdaptive.h"

#include <cmath>
#include <utility>

#include "array/PrincipalComponent.h"

namespace vellumic {
namespace {

constexpr float startSignal = 1e-5F;  // power; white in space, ten times the noise
constexpr float startNoise = 1e-6F;
constexpr float signalLoading = 1e-16F;  // power, on the working copies only
constexpr float noiseLoading = 1e-17F;

float rateOf(float frameRate, float timeConstant) {
  return 1.0F - std::exp(-1.0F / (timeConstant * frameRate));
}

// Real and imaginary parts in turn: a product with a real number then runs in full vectors.
template <class Column>
auto asReals(Column&& column) {
  return Eigen::Map<Eigen::ArrayXf>(reinterpret_cast<float*>(column.data()), 2 * column.size());
}

}  // namespace

BeamformerAdaptive::BeamformerAdaptive(int microphones, int bins, float framesPerSecond) {
  binCount = bins;
  channelCount = microphones;
  frameRate = framesPerSecond;
  covarianceRate = rateOf(frameRate, covarianceTimeConstant);
  binsPerFrame =
      static_cast<std::int32_t>(static_cast<float>(binCount) * binUpdateRate / frameRate);
  estimators.assign(static_cast<std::size_t>(channelCount), ActivityEstimator(binCount, frameRate));
  init(false);
}

bool BeamformerAdaptive::init(bool resetChildren) {
  const int bins = binCount, microphones = channelCount;
  signalActive = false;
  nextBin = 0;
  maxActivity_.setZero(bins);
  binPower_.setZero(bins);
  channelActivity_.setZero(bins);
  crossProduct_.setZero(bins);
  weights.setZero(bins, microphones);
  weights.col(0).setOnes();
  const auto count = static_cast<std::size_t>(microphones);
  signalCovariance.assign(count, Eigen::ArrayXXcf::Zero(bins, microphones));
  noiseCovariance = signalCovariance;
  for (int i = 0; i < microphones; ++i) {
    signalCovariance[static_cast<std::size_t>(i)].col(i).setConstant(startSignal);
    noiseCovariance[static_cast<std::size_t>(i)].col(i).setConstant(startNoise);
  }
  signalMatrix_.setIdentity(microphones, microphones);
  noiseMatrix_.setIdentity(microphones, microphones);
  solvedWeights_.setZero(microphones);
  // The library learns the cache sizes in its first solve, with a system call.
  solvePrincipalComponent(signalMatrix_, noiseMatrix_, solvedWeights_);
  bool succeeded = true;
  if (resetChildren) {
    for (ActivityEstimator& estimator : estimators) succeeded = estimator.init(true) && succeeded;
  }
  return succeeded;
}

void BeamformerAdaptive::apply(const BeamformerSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  covarianceTimeConstant = settings.covarianceTimeConstant;
  covarianceRate = rateOf(frameRate, covarianceTimeConstant);
  thresholdScale = settings.thresholdScale;
}

void BeamformerAdaptive::process(const Input& input, Output output) noexcept VELLUMIC_NONBLOCKING {
  if (!enabled) {
    output = input.col(0);
    return;
  }
  detectActivity(input);
  if (adaptationMode == adaptFree) signalActive = false;
  if (adaptationMode == freezeNoise) signalActive = true;
  if (adaptationMode != freezeBoth) updateCovariances(input);

  for (int solve = 0; solve < binsPerFrame; ++solve) {
    solveBin();
    if (++nextBin >= binCount) nextBin = 0;
  }
  output = input.col(0) * weights.col(0).array();
  for (Eigen::Index m = 1; m < channelCount; ++m) output += input.col(m) * weights.col(m).array();
}

void BeamformerAdaptive::detectActivity(const Input& input) noexcept {
  maxActivity_.setZero();
  signalActive = false;
  for (std::size_t c = 0; c < estimators.size(); ++c) {
    binPower_ = input.col(static_cast<Eigen::Index>(c)).abs2();
    estimators[c].process(binPower_, channelActivity_);
    const float noiseMean = estimators[c].noisePower.mean();
    if (noiseMean * powerRatioThreshold * thresholdScale < binPower_.mean()) signalActive = true;
    maxActivity_ = maxActivity_.max(channelActivity_);
  }
  const auto activeBins = (maxActivity_ > binActivityThreshold * thresholdScale).count();
  const float fraction = static_cast<float>(activeBins) / static_cast<float>(binCount);
  if (fraction > activeBinFractionThreshold * thresholdScale) signalActive = true;
}

void BeamformerAdaptive::updateCovariances(const Input& input) noexcept {
  const auto products = asReals(crossProduct_);
  const auto smooth = [&](Eigen::ArrayXXcf& covariance, Eigen::Index j) {
    auto mean = asReals(covariance.col(j));
    mean += covarianceRate.value * (products - mean);
  };
  for (Eigen::Index i = 0; i < channelCount; ++i) {
    const auto matrix = static_cast<std::size_t>(i);
    for (Eigen::Index j = i; j < channelCount; ++j) {
      crossProduct_ = input.col(i).conjugate() * input.col(j);
      smooth(signalCovariance[matrix], j);
      if (!signalActive) smooth(noiseCovariance[matrix], j);
    }
  }
}

void BeamformerAdaptive::solveBin() noexcept {
  const Eigen::Index k = nextBin;
  for (Eigen::Index i = 0; i < channelCount; ++i) {
    const auto matrix = static_cast<std::size_t>(i);
    for (Eigen::Index j = i; j < channelCount; ++j) {
      signalMatrix_(j, i) = signalCovariance[matrix](k, j);
      noiseMatrix_(j, i) = noiseCovariance[matrix](k, j);
    }
  }
  signalMatrix_.diagonal().array() += signalLoading;
  noiseMatrix_.diagonal().array() += noiseLoading;
  solvePrincipalComponent(signalMatrix_, noiseMatrix_, solvedWeights_);
  weights.row(k) = solvedWeights_.transpose();
}

}  // namespace vellumic
