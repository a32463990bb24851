// Attenuates per bin what the linear echo canceller leaves: learns how strongly the reference
// magnitude leaks into the error and subtracts that, over-weighted by the long-term level of the
// microphone.
//
// Per bin, with E the error's spectrum, F the references' magnitude and s the level times the
// over-subtraction:
//   R = p R + (1 - p) F;  gain = 1 - (c R)^2 s / |E|^2;  c += step (|E| - (c R) c);  E *= gain
// The error magnitude pulls the coupling c up, its own prediction pulls it down. Under a steady hum
// and silent speakers nothing pulls down: its bounds keep it from running away.
//
// Frames of blockLength samples, hop half of that, Hann analysis, no synthesis window: two frames
// per block; the output lags the input by blockLength / 2 samples.
// Thread: real-time only, after setup.
#pragma once

#include <Eigen/Core>

#include "echo/ReferenceSpectra.h"
#include "parameters/StageSettings.h"
#include "platform/Realtime.h"
#include "spectra/Fft.h"

namespace vellumic {

class ResidualSuppressor {
 public:
  Eigen::ArrayXf referenceMagnitude;  // R, blockLength / 2 + 1 bins
  Eigen::ArrayXf couplingGain;        // c, 0.001 at the start, held within 0 to 1000
  Eigen::ArrayXf suppression;         // gain of the latest frame, suppressionFloor to 1
  Eigen::ArrayXf cleanBlock;          // result, blockLength samples
  float longTermLevel = 0.0F;         // mean square of the microphone; setup leaves it

  // Sizes for this block length and starts over; allocates only when the length changes.
  void setup(int blockLength);

  struct Input {
    const Eigen::ArrayXf& previousError;  // blockLength samples each
    const Eigen::ArrayXf& error;
    const ReferenceBlock& reference;
    float blockEnergy;     // sum of squares of the microphone block
    float meanNoisePower;  // measurement noise of the canceller, mean over bins
  };
  void suppressResidual(const Input& input,
                        const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING;

  bool isFinite() const noexcept VELLUMIC_NONBLOCKING;

 private:
  static constexpr float greatestCoupling = 1000.0F;

  void suppressFrame(const Eigen::ArrayXf& reference, const Input& input,
                     const EchoCancellerSettings& settings) noexcept;

  int blockLength_ = 0;
  Eigen::ArrayXf analysisWindow_, errorFrame_, suppressedFrame_, overlap_;
  SplitSpectrum errorBins_;
  Fft fft_;
};

}  // namespace vellumic
