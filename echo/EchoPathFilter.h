// Adaptive model of the path from one loudspeaker reference to one microphone: blockLength taps,
// held as a spectrum and adapted per bin by a diagonal Kalman filter in the frequency domain.
// G. Enzner, P. Vary, "Frequency-domain adaptive Kalman filter for acoustic echo control in
// hands-free telephones", Signal Processing 86(6), 2006.
//
// Per bin, with G and D of DecorrelatedReferences, E the error's spectrum and T its noise power:
//   C = A + Q                    prior covariance
//   H = C / (3 C G + T)          gain, at most 2 / |G|; the 3 is headroom for what the two
//                                references and the truncated path add to the error
//   U = constrained(D H E)       coefficient change: a causal filter of blockLength taps
//   W += U
//   A = (1 - H G) C              posterior covariance
//   Q = p Q + (1 - p) |U|^2      process noise, learned from the changes
// The gain, the covariances and G are complex numbers in the general form; with power spectra of
// real origin their imaginary parts are zero, so they are kept as real numbers.
// Thread: real-time only, after setup.
#pragma once

#include <Eigen/Core>

#include "echo/SplitSpectrum.h"
#include "platform/Realtime.h"
#include "spectra/Fft.h"

namespace vellumic {

class EchoPathFilter {
 public:
  // Arrays over blockLength + 1 bins.
  SplitSpectrum weights;        // W, zero at the start
  Eigen::ArrayXf posterior;     // A, 1 at the start
  Eigen::ArrayXf processNoise;  // Q
  float pole = 0.7F;            // p

  // Sizes for this block length and starts over; allocates only when the length changes.
  void setup(int blockLength);

  struct Observation {
    const SplitSpectrum& decorrelated;  // D
    const Eigen::ArrayXf& scaledPower;  // G
    const SplitSpectrum& error;         // E
    const Eigen::ArrayXf& noisePower;   // T
  };
  // Work space of one adaptation, of no meaning between two.
  struct Workspace {
    Fft& fft;               // 2 * blockLength
    SplitSpectrum& update;  // U
    Eigen::ArrayXf& frame;  // 2 * blockLength
  };
  void updateFilter(const Observation& observed, Workspace work) noexcept VELLUMIC_NONBLOCKING;
};

}  // namespace vellumic
