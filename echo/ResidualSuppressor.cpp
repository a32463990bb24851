#include "echo/ResidualSuppressor.h"

#include <cmath>

#include "echo/kernels/SuppressorKernels.h"
#include "spectra/ArrayViews.h"

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

void ResidualSuppressor::suppressResidual(
    const Input& input, const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  const int half = blockLength_ / 2;
  for (std::size_t pass = 0; pass < 2; ++pass) {
    if (pass == 0)
      errorFrame_ << input.previousError.tail(half), input.error.head(half);
    else
      whole(errorFrame_) = input.error;
    errorFrame_ *= analysisWindow_;
    suppressFrame(input.reference.sumMagnitude[pass], input, settings);
    cleanBlock.segment(pass == 0 ? 0 : half, half) =
        overlap_.tail(half) + suppressedFrame_.head(half);
    overlap_.swap(suppressedFrame_);
  }
}

void ResidualSuppressor::suppressFrame(const Eigen::ArrayXf& reference, const Input& input,
                                       const EchoCancellerSettings& settings) noexcept {
  errorBins_.fromSamples(fft_, errorFrame_.data());
  longTermLevel = settings.levelSmoothing * longTermLevel + (1.0F - settings.levelSmoothing) *
                                                                input.blockEnergy /
                                                                static_cast<float>(blockLength_);
  suppressorKernels().suppress({.reference = reference.data(),
                                .pole = settings.referenceSmoothing,
                                .strength = longTermLevel * settings.overSubtraction,
                                .step = settings.couplingStep / (input.meanNoisePower + 1.0F),
                                .floor = settings.suppressionFloor,
                                .greatestCoupling = greatestCoupling,
                                .referenceMagnitude = referenceMagnitude.data(),
                                .couplingGain = couplingGain.data(),
                                .gain = suppression.data(),
                                .error = errorBins_.planes()},
                               static_cast<int>(errorBins_.size()));
  errorBins_.toSamples(fft_, suppressedFrame_.data());
}

bool ResidualSuppressor::isFinite() const noexcept VELLUMIC_NONBLOCKING {
  return std::isfinite(cleanBlock.square().sum() + referenceMagnitude.sum() + longTermLevel);
}

}  // namespace vellumic
