// Lag between the echo reference and the microphones, from the cross-correlation of a sliding
// window. A lag counts once it came agreeBlocks times in a row within 5 %.
// Threads: construction, setters and rebuild allocate and stay off the audio path; update and
// reset are real-time.
#pragma once

#include <Eigen/Core>

#include "echo/SplitSpectrum.h"
#include "platform/Realtime.h"
#include "spectra/Fft.h"

namespace vellumic {

class DelayEstimator {
 public:
  DelayEstimator();  // window 4096

  void setWindowSize(int samples);  // samples correlated; lags reach from -window to +window
  void rebuild();                   // sizes and clears the arrays; the lags stay
  void reset() noexcept VELLUMIC_NONBLOCKING;  // clears history and lags

  // As many rows each, at most the window; any number of channels, which are summed.
  void update(const Eigen::ArrayXXf& reference,
              const Eigen::ArrayXXf& microphones) noexcept VELLUMIC_NONBLOCKING;

  // Feeds one raw lag to the agreement rule.
  void accept(int lag) noexcept VELLUMIC_NONBLOCKING;

  int committedLag = 0;  // samples; positive: the microphones trail the reference
  int lastLag = 0;       // latest raw lag
  int agreeCount = 0;

 private:
  static constexpr float agreeTolerance = 0.05F;
  static constexpr int agreeBlocks = 3;

  void clear() noexcept;
  int rawLag() noexcept;

  int windowSize_ = 4096;
  Eigen::ArrayXf referenceHistory_, micHistory_;  // windowSize
  Eigen::ArrayXf padded_;                         // 2 * windowSize
  SplitSpectrum referenceBins_, micBins_;
  Fft fft_;
};

}  // namespace vellumic
