// Noise power spectrum by improved minima controlled recursive averaging.
//
// I. Cohen, "Noise Spectrum Estimation in Adverse Environments: Improved Minima Controlled
// Recursive Averaging", IEEE TSAP 11(5), 2003, with the minimum taken over the whole window of
// windowFrames instead of its sub-windows. Powers are |X|^2 of the unscaled transform.
//
// After a silent start the estimate needs two windows: one until the first smoothed spectrum has
// forgotten the silence, one for the second.
//
// Threads: setBinCount and applyParameters allocate; the rest is for the audio thread.
#pragma once

#include <Eigen/Core>
#include <memory>

#include "array/NoiseHistory.h"
#include "parameters/StageSettings.h"
#include "platform/Realtime.h"

namespace vellumic {

class NoiseEstimator {
 public:
  explicit NoiseEstimator(int binCount = 257);

  void setBinCount(int binCount);  // sizes and zeroes all, with a new history

  // power, previousClean: binCount. previousClean is gain^2 * power of the frame before.
  // Returns the noise power, valid until the next call.
  const Eigen::ArrayXf& update(const Eigen::ArrayXf& power,
                               const Eigen::ArrayXf& previousClean) noexcept VELLUMIC_NONBLOCKING;

  // Prepare and adopt in one: takes all values; if one of them changed, the history restarts at
  // 1.0 (with a new length if that changed) and the next frame initializes the noise. Unchanged
  // settings leave everything alone.
  void applyParameters(const NoiseEstimatorSettings& settings);

  // The parts of it that the audio thread runs. apply copies numbers, all but windowFrames, which
  // comes with the history; with `reset` it also runs resetHistory. adopt exchanges the history
  // for a prepared one of the same binCount and gives the old one back for release elsewhere; one
  // of another size is left where it is. Adopt first, then apply, and a reset costs nothing.
  void apply(const NoiseEstimatorSettings& settings, bool reset) noexcept VELLUMIC_NONBLOCKING;
  void adopt(std::unique_ptr<NoiseHistory>& prepared) noexcept VELLUMIC_NONBLOCKING;

  // The history back to 1.0; the next frame initializes the noise.
  void resetHistory() noexcept VELLUMIC_NONBLOCKING;

  const NoiseEstimatorSettings& settings() const noexcept { return settings_; }
  int binCount() const noexcept { return static_cast<int>(S.size()); }

  bool resetPending = false;  // the next frame initializes the noise
  Eigen::ArrayXf S, minimumS;
  Eigen::ArrayXf S2, minimumS2;  // the second iteration: frames and bins with speech left out
  Eigen::ArrayXf noiseBiased;    // the result
  Eigen::ArrayXf noiseUnbiased;

 private:
  NoiseEstimatorSettings settings_;
  float biasCompensation_ = 1.0F;  // beta, from gamma1
  std::unique_ptr<NoiseHistory> history_;
  Eigen::ArrayXf mask_, maskedPower_, smoothed_, smoothedMask_;  // scratch
};

// Three taps (1/4, 1/2, 1/4) over the bins, of which there are at least three. At the edges the
// weights are (1/2, 1/4), losing a quarter, in bin 0 and (1/2, 1/2) in the last bin. in and out:
// equal sizes, not the same array.
void frequencySmooth(const Eigen::ArrayXf& in, Eigen::ArrayXf& out) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
