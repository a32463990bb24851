// Adaptive model of the path from one loudspeaker reference to one microphone: blockLength taps,
// held as a spectrum and adapted per bin by a diagonal Kalman filter in the frequency domain.
// G. Enzner, P. Vary, "Frequency-domain adaptive Kalman filter for acoustic echo control in
// hands-free telephones", Signal Processing 86(6), 2006.
//
// The gain, the covariances and the scaled power are complex numbers in the general form; with
// power spectra of real origin their imaginary parts are zero, so they are kept as real numbers.
// Thread: real-time only, after setup.
#pragma once

#include <Eigen/Core>

#include "echo/ReferenceHistory.h"
#include "echo/SpectralTracker.h"
#include "spectra/Fft.h"

namespace vellumic {

class EchoPathFilter {
 public:
  // Arrays over blockLength + 1 bins unless noted.
  Eigen::ArrayXcf weights;       // W, zero at the start
  Eigen::ArrayXf posterior;      // state covariance A, 1 at the start
  Eigen::ArrayXf prior;          // C
  Eigen::ArrayXf kalmanGain;     // H
  Eigen::ArrayXcf update;        // coefficient change of the latest block
  SpectralTracker processNoise;  // its smoothed power, Q

  // Sizes for this block length and starts over; allocates only when the length changes.
  void setup(int blockLength);

  // Adds the echo of this block to `estimate` (blockLength samples). `fft` has 2 * blockLength.
  void addEcho(const Eigen::ArrayXcf& reference, Fft& fft, Eigen::ArrayXf& estimate) noexcept;

  // One adaptation step. `error` is the error's spectrum, `noisePower` the measurement noise.
  void adapt(const ReferenceHistory& reference, const Eigen::ArrayXcf& error,
             const Eigen::ArrayXf& noisePower, Fft& fft) noexcept;

 private:
  void computeGain(const Eigen::ArrayXf& power, const Eigen::ArrayXf& noisePower) noexcept;

  int blockLength_ = 0;
  Eigen::ArrayXcf echoBins_;
  Eigen::ArrayXf time_;  // 2 * blockLength: echo or gradient
};

}  // namespace vellumic
