#include "array/NoiseEstimator.h"

#include <algorithm>
#include <cmath>
#include <utility>

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
  const Eigen::Index last = in.size() - 1;
  out.segment(1, last - 1) =
      0.25F * in.head(last - 1) + 0.5F * in.segment(1, last - 1) + 0.25F * in.tail(last - 1);
  out[0] = 0.5F * in[0] + 0.25F * in[1];
  out[last] = 0.5F * in[last] + 0.5F * in[last - 1];
}

NoiseEstimator::NoiseEstimator(int bins) : biasCompensation_(biasCompensation(settings_.gamma1)) {
  setBinCount(bins);
}

void NoiseEstimator::setBinCount(int bins) {
  for (Eigen::ArrayXf* values : {&S, &minimumS, &S2, &minimumS2, &noiseBiased, &noiseUnbiased,
                                 &mask_, &maskedPower_, &smoothed_, &smoothedMask_, &presence_})
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
    noiseUnbiased = power / biasCompensation_;
    noiseBiased = noiseUnbiased;
    resetPending = false;
  }
  smoothPower(power);
  smoothNoiseOnly(power);
  minimumS2 = S2.min(minimumS2);
  estimatePresence(power, previousClean);

  const float pole = settings_.noisePole;
  smoothed_ = pole + (1.0F - pole) * presence_;
  noiseUnbiased = (1.0F - smoothed_) * power + smoothed_ * noiseUnbiased;
  noiseBiased = biasCompensation_ * noiseUnbiased;

  history_->push(S, S2);
  minimumS = history_->historyS.minimum();
  minimumS2 = history_->historyS2.minimum();
  return noiseBiased;
}

void NoiseEstimator::smoothPower(const Eigen::ArrayXf& power) noexcept {
  const float pole = settings_.powerPole;
  frequencySmooth(power, smoothed_);
  S = pole * S + (1.0F - pole) * smoothed_;
  minimumS = S.min(minimumS);
}

// Averages over the bins and frames that a rough decision takes for noise alone.
void NoiseEstimator::smoothNoiseOnly(const Eigen::ArrayXf& power) noexcept {
  for (Eigen::Index k = 0; k < power.size(); ++k) {
    const float floor = settings_.minimumBias * std::max(epsilon, minimumS[k]);
    const bool noiseOnly = power[k] / floor < settings_.gamma0 && S[k] / floor < settings_.zeta0;
    mask_[k] = noiseOnly ? 1.0F : 0.0F;
  }
  maskedPower_ = power * mask_;
  frequencySmooth(mask_, smoothedMask_);
  frequencySmooth(maskedPower_, smoothed_);
  const float pole = settings_.powerPole;
  for (Eigen::Index k = 0; k < power.size(); ++k) {
    const float weight = smoothedMask_[k];
    const float mean = weight != 0.0F ? smoothed_[k] / std::max(epsilon, weight) : S2[k];
    S2[k] = pole * S2[k] + (1.0F - pole) * mean;
  }
}

void NoiseEstimator::estimatePresence(const Eigen::ArrayXf& power,
                                      const Eigen::ArrayXf& previousClean) noexcept {
  const NoiseEstimatorSettings& s = settings_;
  for (Eigen::Index k = 0; k < power.size(); ++k) {
    const float minimum = std::max(epsilon, minimumS2[k]);
    const float ratio = power[k] / s.minimumBias / minimum;
    const float smoothedRatio = S[k] / s.minimumBias / minimum;
    if (ratio >= s.gamma1 || smoothedRatio >= s.zeta0) {
      presence_[k] = 1.0F;
      continue;
    }
    if (ratio <= 1.0F) {
      presence_[k] = 0.0F;
      continue;
    }
    const float absence = (s.gamma1 - ratio) / (s.gamma1 - 1.0F);  // a priori
    const float priorPresence = std::max(epsilon, 1.0F - absence);
    const float noise = std::max(epsilon, noiseBiased[k]);
    const float posterior = power[k] / noise;
    const float decisionDirected = s.snrPole * previousClean[k] / noise +
                                   (1.0F - s.snrPole) * std::max(posterior - 1.0F, 0.0F);
    const float prior = std::max(s.snrFloor, decisionDirected / priorPresence);
    const float v = posterior * prior / std::max(epsilon, prior + 1.0F);
    const float odds = absence / priorPresence * (1.0F + prior) * std::exp(-v);
    // A ratio beyond float gives no odds; the noise then stands still.
    presence_[k] = std::min(1.0F / std::max(epsilon, 1.0F + odds), 1.0F);
  }
}

}  // namespace vellumic
