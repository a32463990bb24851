#include "array/NoiseEstimator.h"

#include <cmath>
#include <utility>

#include "array/kernels/NoiseEstimation.h"
#include "spectra/ArrayViews.h"

namespace vellumic {
namespace {

// The factor by which averaging only what the presence decision lets through falls short.
float biasCompensation(float gamma1) {
  const float decay = std::exp(-gamma1);
  return ((gamma1 - 1.3678794F) + decay) / ((gamma1 + 2.0F) * decay + (gamma1 - 2.1036384F));
}

void zeroWhatIsNotFinite(Eigen::ArrayXf& values) {
  for (float& value : values) {
    if (!std::isfinite(value)) value = 0.0F;
  }
}

}  // namespace

void frequencySmooth(const Eigen::ArrayXf& in, Eigen::ArrayXf& out) noexcept VELLUMIC_NONBLOCKING {
  noiseKernels().smoothBins(in.data(), static_cast<int>(in.size()), out.data());
}

NoiseEstimator::NoiseEstimator(int bins) : biasCompensation_(biasCompensation(settings_.gamma1)) {
  setBinCount(bins);
}

void NoiseEstimator::setBinCount(int bins) {
  for (Eigen::ArrayXf* values : {&S, &minimumS, &S2, &minimumS2, &noiseBiased, &noiseUnbiased,
                                 &mask_, &maskedPower_, &smoothed_, &smoothedMask_})
    values->setZero(bins);
  history_ = std::make_unique<NoiseHistory>(bins, settings_.windowFrames);
}

void NoiseEstimator::applyParameters(const NoiseEstimatorSettings& settings) {
  if (settings == settings_) return;
  if (settings.windowFrames != settings_.windowFrames) {
    auto prepared = std::make_unique<NoiseHistory>(binCount(), settings.windowFrames);
    adopt(prepared);
  }
  apply(settings, true);
}

void NoiseEstimator::apply(const NoiseEstimatorSettings& settings,
                           bool reset) noexcept VELLUMIC_NONBLOCKING {
  settings_ = settings;
  settings_.windowFrames = history_->windowFrames;
  biasCompensation_ = biasCompensation(settings_.gamma1);
  if (!reset) return;
  // Earlier values may have driven the recursions out of range, which they never leave again.
  for (Eigen::ArrayXf* values : {&S, &minimumS, &S2, &minimumS2, &noiseBiased, &noiseUnbiased})
    zeroWhatIsNotFinite(*values);
  resetHistory();
}

void NoiseEstimator::adopt(std::unique_ptr<NoiseHistory>& prepared) noexcept VELLUMIC_NONBLOCKING {
  if (!prepared || prepared->binCount != binCount()) return;
  std::swap(history_, prepared);
  settings_.windowFrames = history_->windowFrames;
}

void NoiseEstimator::resetHistory() noexcept VELLUMIC_NONBLOCKING {
  history_->restart();
  resetPending = true;
}

const Eigen::ArrayXf& NoiseEstimator::update(const Eigen::ArrayXf& power,
                                             const Eigen::ArrayXf& previousClean) noexcept
    VELLUMIC_NONBLOCKING {
  if (resetPending) {
    whole(noiseUnbiased) = power / biasCompensation_;
    whole(noiseBiased) = noiseUnbiased;
    resetPending = false;
  }
  const NoiseFrame frame{binCount(),       power.data(),         previousClean.data(),
                         S.data(),         minimumS.data(),      S2.data(),
                         minimumS2.data(), noiseUnbiased.data(), noiseBiased.data()};
  frequencySmooth(power, smoothed_);
  noiseKernels().followPower(frame, settings_, smoothed_.data(), mask_.data(), maskedPower_.data());
  frequencySmooth(mask_, smoothedMask_);
  frequencySmooth(maskedPower_, smoothed_);
  noiseKernels().followNoise(frame, settings_, smoothedMask_.data(), smoothed_.data(),
                             biasCompensation_);

  history_->push(S, S2);
  whole(minimumS) = history_->historyS.minimum();
  whole(minimumS2) = history_->historyS2.minimum();
  return noiseBiased;
}

}  // namespace vellumic
