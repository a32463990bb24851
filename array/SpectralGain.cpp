#include "array/SpectralGain.h"

#include <algorithm>
#include <cmath>
#include <numbers>

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
  for (Eigen::ArrayXf* values : {&cleanPower, &noise_, &prior_, &pass_, &gain_})
    values->setZero(bins);
}

void SpectralGain::apply(const SpectralGainSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  settings_ = settings;
}

const Eigen::ArrayXf& SpectralGain::compute(
    const Eigen::ArrayXf& power, const Eigen::ArrayXf& noise) noexcept VELLUMIC_NONBLOCKING {
  const SpectralGainSettings& s = settings_;
  noise_ = noise.max(epsilon);
  prior_ = (1.0F - s.snrPole) * (power / noise_ - 1.0F).max(snrFloor);
  if (!firstFrame) prior_ += s.snrPole * (cleanPower / noise_);
  firstFrame = false;

  pass_ = (prior_ / (prior_ + s.offset1).max(epsilon)).pow(s.exponent1).max(s.floor1);
  prior_ = power * pass_.square() / noise_;
  pass_ = (prior_ / (prior_ + s.offset2).max(epsilon)).pow(s.exponent2).max(s.floor2);
  shape();

  // What is not finite may be heard in this frame but does not stay.
  cleanPower = power * gain_.square();
  for (float& value : cleanPower) {
    if (!std::isfinite(value)) value = 0.0F;
  }
  return gain_;
}

void SpectralGain::shape() noexcept {
  const float energy = meanSquare(pass_);
  bins_ = pass_.cast<std::complex<float>>();
  fft_.inverse(bins_.data(), impulse_.data());
  const Eigen::Index half = impulse_.size() / 2;  // the peak is at 0, the window's is in its middle
  impulse_.head(half) *= window.tail(half);
  impulse_.tail(half) *= window.head(half);
  fft_.forward(impulse_.data(), bins_.data());
  gain_ = bins_.abs();
  const float shapedEnergy = std::max(meanSquare(gain_), epsilon);
  gain_ *= std::sqrt(std::max(energy / shapedEnergy, 0.0F));
}

}  // namespace vellumic
