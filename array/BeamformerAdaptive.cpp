#include "array/BeamformerAdaptive.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "array/PrincipalComponent.h"
#include "array/SmoothingRate.h"
#include "array/kernels/Beam.h"
#include "array/kernels/PrincipalVectors.h"

namespace vellumic {
namespace {

constexpr float startSignal = 1e-5F;  // power; white in space, ten times the noise
constexpr float startNoise = 1e-6F;
constexpr float signalLoading = 1e-16F;  // power, on the working copies only
constexpr float noiseLoading = 1e-17F;

}  // namespace

BeamformerAdaptive::BeamformerAdaptive(int microphones, int bins, float framesPerSecond) {
  binCount = bins;
  channelCount = microphones;
  frameRate = framesPerSecond;
  covarianceRate = smoothingRateOf(frameRate, covarianceTimeConstant);
  binsPerFrame =
      static_cast<std::int32_t>(static_cast<float>(binCount) * binUpdateRate / frameRate);
  estimators.assign(static_cast<std::size_t>(channelCount), ActivityEstimator(binCount, frameRate));
  init(false);
}

bool BeamformerAdaptive::init(bool resetChildren) {
  const int bins = binCount, microphones = channelCount;
  signalActive = false;
  nextBin = 0;
  spectrum_ = SpectrumPlanes(bins, microphones);
  power_.setZero(planeRows(bins), microphones);
  maxActivity_.setZero(bins);
  channelActivity_.setZero(bins);
  weights = SpectrumPlanes(bins, microphones);
  weights.real.col(0).setOnes();
  signalCovariance = CovariancePlanes(bins, microphones, startSignal);
  noiseCovariance = CovariancePlanes(bins, microphones, startNoise);
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
  covarianceRate = smoothingRateOf(frameRate, covarianceTimeConstant);
  thresholdScale = settings.thresholdScale;
}

void BeamformerAdaptive::process(const Input& input, Output output) noexcept VELLUMIC_NONBLOCKING {
  if (!enabled) {
    output = input.col(0);
    return;
  }
  split(input);
  detectActivity();
  if (adaptationMode == adaptFree) signalActive = false;
  if (adaptationMode == freezeNoise) signalActive = true;
  if (adaptationMode != freezeBoth) updateCovariances();

  for (int left = binsPerFrame; left > 0;) {
    const int run = std::min({left, binCount - nextBin, mostBinsOfASolve});
    solveBins(run);
    left -= run;
    nextBin += run;
    if (nextBin >= binCount) nextBin = 0;
  }
  beamKernels().combine(spectrum_.real.data(), spectrum_.imaginary.data(), weights.real.data(),
                        weights.imaginary.data(), planeRows(binCount), channelCount, binCount,
                        reinterpret_cast<float*>(output.data()));
}

void BeamformerAdaptive::split(const Input& input) noexcept {
  for (Eigen::Index m = 0; m < channelCount; ++m)
    beamKernels().split(reinterpret_cast<const float*>(input.col(m).data()), binCount,
                        spectrum_.real.col(m).data(), spectrum_.imaginary.col(m).data(),
                        power_.col(m).data());
}

void BeamformerAdaptive::detectActivity() noexcept {
  whole(maxActivity_).setZero();
  signalActive = false;
  for (std::size_t c = 0; c < estimators.size(); ++c) {
    const auto binPower = power_.col(static_cast<Eigen::Index>(c)).head(binCount);
    estimators[c].process(binPower, channelActivity_);
    const float noiseMean = estimators[c].noisePower.mean();
    if (noiseMean * powerRatioThreshold * thresholdScale < binPower.mean()) signalActive = true;
    // The library hands its largest-of-two on as a pointer to a function.
    vouchedFor([this] { whole(maxActivity_) = maxActivity_.max(channelActivity_); });
  }
  const auto activeBins = (maxActivity_ > binActivityThreshold * thresholdScale).count();
  const float fraction = static_cast<float>(activeBins) / static_cast<float>(binCount);
  if (fraction > activeBinFractionThreshold * thresholdScale) signalActive = true;
}

// Of every pair of microphones: mean += covarianceRate * (x_j conj(x_i) - mean).
void BeamformerAdaptive::updateCovariances() noexcept {
  beamKernels().smooth(spectrum_.real.data(), spectrum_.imaginary.data(), power_.data(),
                       planeRows(binCount), channelCount, covarianceRate,
                       signalCovariance.planes.data(),
                       signalActive ? nullptr : noiseCovariance.planes.data());
}

// `count` bins from nextBin on.
void BeamformerAdaptive::solveBins(int count) noexcept {
  const CovariancePair pair{.signal = signalCovariance.planes.data() + nextBin,
                            .noise = noiseCovariance.planes.data() + nextBin,
                            .rows = planeRows(binCount),
                            .signalLoading = signalLoading,
                            .noiseLoading = noiseLoading};
  std::uint32_t unsolved = principalVectorKernels().solve(
      pair, channelCount, count, weights.real.data() + nextBin, weights.imaginary.data() + nextBin);
  for (; unsolved != 0; unsolved &= unsolved - 1)
    solveExactly(nextBin + std::countr_zero(unsolved));
}

void BeamformerAdaptive::solveExactly(int bin) noexcept {
  for (int column = 0; column < channelCount; ++column) {
    for (int row = column; row < channelCount; ++row) {
      signalMatrix_(row, column) = signalCovariance.at(bin, row, column);
      noiseMatrix_(row, column) = noiseCovariance.at(bin, row, column);
    }
  }
  signalMatrix_.diagonal().array() += signalLoading;
  noiseMatrix_.diagonal().array() += noiseLoading;
  solvePrincipalComponent(signalMatrix_, noiseMatrix_, solvedWeights_);
  for (int m = 0; m < channelCount; ++m) weights.set(bin, m, solvedWeights_[m]);
}

}  // namespace vellumic
