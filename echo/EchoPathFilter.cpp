#include "echo/EchoPathFilter.h"

#include <algorithm>
#include <cmath>

namespace vellumic {

void EchoPathFilter::setup(int blockLength) {
  blockLength_ = blockLength;
  const Eigen::Index bins = blockLength + 1;
  weights.setZero(bins);
  posterior.setOnes(bins);
  prior.setZero(bins);
  kalmanGain.setZero(bins);
  update.setZero(bins);
  processNoise.setupPower(bins);
  echoBins_.setZero(bins);
  time_.setZero(2 * blockLength);
}

void EchoPathFilter::addEcho(const Eigen::ArrayXcf& reference, Fft& fft,
                             Eigen::ArrayXf& estimate) noexcept {
  echoBins_ = reference * weights;
  fft.inverse(echoBins_.data(), time_.data());
  estimate += time_.tail(blockLength_);  // the first half is wrapped around
}

void EchoPathFilter::adapt(const ReferenceHistory& reference, const Eigen::ArrayXcf& error,
                           const Eigen::ArrayXf& noisePower, Fft& fft) noexcept {
  computeGain(reference.scaledPower, noisePower);
  update = (reference.decorrelated * kalmanGain.cast<std::complex<float>>()) * error;

  // Constraint: a causal filter of blockLength taps.
  fft.inverse(update.data(), time_.data());
  time_.tail(blockLength_).setZero();
  fft.forward(time_.data(), update.data());

  weights += update;
  posterior = (1.0F - kalmanGain * reference.scaledPower) * prior;
  processNoise.updatePower(update);
}

void EchoPathFilter::computeGain(const Eigen::ArrayXf& power,
                                 const Eigen::ArrayXf& noisePower) noexcept {
  prior = posterior + processNoise.power;
  // The factor 3 is headroom for what the two references and the truncated path add to the error.
  kalmanGain = prior / (3.0F * prior * power + noisePower);
  for (Eigen::Index k = 0; k < kalmanGain.size(); ++k) {
    const float limit = 4.0F / std::max(power[k] * power[k], 1e-10F);  // of the gain's square
    if (kalmanGain[k] * kalmanGain[k] >= limit) kalmanGain[k] = std::sqrt(limit);
  }
}

}  // namespace vellumic
