// Suppression gain per bin: two Wiener-like passes, then smoothing by limiting the length of the
// gain's impulse response.
//
// Threads: setBinCount allocates; the rest is for the audio thread.
#pragma once

#include <Eigen/Core>

#include "parameters/StageSettings.h"
#include "platform/Realtime.h"
#include "spectra/Fft.h"

namespace vellumic {

class SpectralGain {
 public:
  explicit SpectralGain(int binCount = 257);

  void setBinCount(int binCount);  // transform length 2 * binCount - 2; zeroes all

  // power, noise: binCount. Returns the amplitude gain, valid until the next call.
  const Eigen::ArrayXf& compute(const Eigen::ArrayXf& power,
                                const Eigen::ArrayXf& noise) noexcept VELLUMIC_NONBLOCKING;

  // Copies numbers.
  void apply(const SpectralGainSettings& settings) noexcept VELLUMIC_NONBLOCKING;

  const SpectralGainSettings& settings() const noexcept { return settings_; }

  static constexpr float snrFloor = 0.0F;  // least instantaneous signal-to-noise ratio

  bool firstFrame = true;
  Eigen::ArrayXf window;      // symmetric Hamming, 2 * binCount - 2
  Eigen::ArrayXf cleanPower;  // gain^2 * power of the last frame

 private:
  // Windows the impulse response of `pass_` about its peak, into `gain_`. Returns the factor that
  // keeps the energy of the curve.
  float shape() noexcept;

  SpectralGainSettings settings_;
  Fft fft_;
  Eigen::ArrayXf pass_, gain_;  // binCount
  Eigen::ArrayXf impulse_;      // 2 * binCount - 2
  Eigen::ArrayXcf bins_;        // binCount
};

}  // namespace vellumic
