#include "array/SpectralGain.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "array/kernels/Gain.h"
#include "spectra/ArrayViews.h"

namespace vellumic {
namespace {

Eigen::ArrayXf symmetricHamming(int count) {
  const auto index = Eigen::ArrayXf::LinSpaced(count, 0.0F, static_cast<float>(count - 1));
  const float step = 2.0F * std::numbers::pi_v<float> / static_cast<float>(count - 1);
  return 0.54F - 0.46F * (step * index).cos();
}

// Mean square of the whole spectrum of which `half` is the one half.
float meanSquare(const Eigen::ArrayXf& half) {
  const Eigen::Index inner = half.size() - 2;
  return (half.square().sum() + half.segment(1, inner).square().sum()) /
         static_cast<float>(2 * half.size() - 2);
}

}  // namespace

SpectralGain::SpectralGain(int bins) { setBinCount(bins); }

void SpectralGain::setBinCount(int bins) {
  const int length = 2 * bins - 2;
  window = symmetricHamming(length);
  fft_.prepare(length);
  impulse_.setZero(length);
  bins_.setZero(bins);
  for (Eigen::ArrayXf* values : {&cleanPower, &pass_, &gain_}) values->setZero(bins);
}

void SpectralGain::apply(const SpectralGainSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  settings_ = settings;
}

const Eigen::ArrayXf& SpectralGain::compute(
    const Eigen::ArrayXf& power, const Eigen::ArrayXf& noise) noexcept VELLUMIC_NONBLOCKING {
  const GainKernels& kernels = gainKernels();
  const auto bins = static_cast<int>(power.size());
  kernels.passes(power.data(), noise.data(), firstFrame ? nullptr : cleanPower.data(), bins,
                 settings_, snrFloor, pass_.data());
  firstFrame = false;
  const float energyFactor = shape();
  // What is not finite may be heard in this frame but does not stay.
  kernels.finish(power.data(), bins, energyFactor, gain_.data(), cleanPower.data());
  return gain_;
}

float SpectralGain::shape() noexcept {
  const float energy = meanSquare(pass_);
  whole(bins_) = pass_.cast<std::complex<float>>();
  fft_.inverse(bins_.data(), impulse_.data());
  const Eigen::Index half = impulse_.size() / 2;  // the peak is at 0, the window's is in its middle
  impulse_.head(half) *= window.tail(half);
  impulse_.tail(half) *= window.head(half);
  fft_.forward(impulse_.data(), bins_.data());
  gainKernels().magnitude(reinterpret_cast<const float*>(bins_.data()),
                          static_cast<int>(gain_.size()), gain_.data());
  const float shapedEnergy = std::max(meanSquare(gain_), gainEpsilon);
  return std::sqrt(std::max(energy / shapedEnergy, 0.0F));
}

}  // namespace vellumic
