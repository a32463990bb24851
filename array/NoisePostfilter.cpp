#include "array/NoisePostfilter.h"

#include <bit>

#include "array/kernels/Gain.h"

namespace vellumic {

NoisePostfilter::NoisePostfilter() : power_(Eigen::ArrayXf::Zero(size_ + 1)) {}

void NoisePostfilter::setSize(int newSize) {
  const bool allowed =
      newSize >= 2 && newSize <= 8192 && std::has_single_bit(static_cast<unsigned>(newSize));
  if (!allowed || newSize == size_) return;
  size_ = newSize;
  noiseEstimator.setBinCount(newSize + 1);
  spectralGain.setBinCount(newSize + 1);
  power_.setZero(newSize + 1);
}

void NoisePostfilter::process(const ConstView<Eigen::ArrayXcf>& input,
                              Eigen::Ref<Eigen::ArrayXcf> output) noexcept VELLUMIC_NONBLOCKING {
  const auto* in = reinterpret_cast<const float*>(input.data());
  const auto bins = static_cast<int>(power_.size());
  gainKernels().power(in, bins, power_.data());
  const Eigen::ArrayXf& noise = noiseEstimator.update(power_, spectralGain.cleanPower);
  const Eigen::ArrayXf& gain = spectralGain.compute(power_, noise);
  gainKernels().apply(gain.data(), in, bins, reinterpret_cast<float*>(output.data()));
}

void NoisePostfilter::reset() noexcept VELLUMIC_NONBLOCKING {
  noiseEstimator.resetHistory();
  spectralGain.firstFrame = true;
}

void NoisePostfilter::applyParameters(const NoiseEstimatorSettings& noise,
                                      const SpectralGainSettings& gain) {
  noiseEstimator.applyParameters(noise);
  spectralGain.apply(gain);
}

}  // namespace vellumic
