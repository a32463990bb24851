#include "echo/ResidualSuppressor.h"

#include <algorithm>
#include <cmath>

namespace vellumic {

void ResidualSuppressor::setup(int blockLength) {
  if (blockLength != blockLength_) analysisWindow_ = symmetricHann(blockLength);
  blockLength_ = blockLength;
  const Eigen::Index bins = blockLength / 2 + 1;
  referenceMagnitude.setZero(bins);
  couplingGain.setConstant(bins, 0.001F);
  suppression.setOnes(bins);
  errorBins_.setZero(bins);
  for (auto* samples : {&cleanBlock, &errorFrame_, &suppressedFrame_, &overlap_})
    samples->setZero(blockLength);
  fft_.prepare(blockLength);
}

void ResidualSuppressor::process(const Input& input,
                                 const EchoCancellerSettings& settings) noexcept {
  const int half = blockLength_ / 2;
  for (std::size_t pass = 0; pass < 2; ++pass) {
    if (pass == 0)
      errorFrame_ << input.previousError.tail(half), input.error.head(half);
    else
      errorFrame_ = input.error;
    errorFrame_ *= analysisWindow_;
    suppressFrame(input.reference.sumMagnitude[pass], input, settings);
    cleanBlock.segment(pass == 0 ? 0 : half, half) =
        overlap_.tail(half) + suppressedFrame_.head(half);
    overlap_.swap(suppressedFrame_);
  }
}

void ResidualSuppressor::suppressFrame(const Eigen::ArrayXf& magnitude, const Input& input,
                                       const EchoCancellerSettings& settings) noexcept {
  fft_.forward(errorFrame_.data(), errorBins_.data());
  const float pole = settings.referenceSmoothing;
  referenceMagnitude = pole * referenceMagnitude + (1.0F - pole) * magnitude;
  longTermLevel = settings.levelSmoothing * longTermLevel + (1.0F - settings.levelSmoothing) *
                                                                input.blockEnergy /
                                                                static_cast<float>(blockLength_);
  const float strength = longTermLevel * settings.overSubtraction;
  const float step = settings.couplingStep / (input.meanNoisePower + 1.0F);
  for (Eigen::Index k = 0; k < errorBins_.size(); ++k) {
    const float power = std::norm(errorBins_[k]);
    const float leak = couplingGain[k] * referenceMagnitude[k];
    const float gain = 1.0F - leak * leak * strength / std::max(power, 1e-10F);
    // Written so that NaN falls to the lower bounds.
    const float bounded = gain > settings.suppressionFloor ? gain : settings.suppressionFloor;
    suppression[k] = std::min(bounded, 1.0F);
    // The error magnitude pulls the coupling up, its own prediction pulls it down. Under a steady
    // hum and silent speakers nothing pulls down: the bounds keep that from running away.
    const float coupling = couplingGain[k] + step * (std::sqrt(power) - leak * couplingGain[k]);
    couplingGain[k] = coupling > 0.0F ? std::min(coupling, greatestCoupling) : 0.0F;
    errorBins_[k] *= suppression[k];
  }
  fft_.inverse(errorBins_.data(), suppressedFrame_.data());
}

bool ResidualSuppressor::isFinite() const noexcept {
  return std::isfinite(cleanBlock.square().sum() + referenceMagnitude.sum() + longTermLevel);
}

}  // namespace vellumic
