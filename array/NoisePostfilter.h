// Noise suppression of one spectrum: noise estimate, gain, product.
//
// Threads: construction, setSize and applyParameters allocate; the rest is for the audio thread.
#pragma once

#include <Eigen/Core>

#include "array/NoiseEstimator.h"
#include "array/SpectralGain.h"
#include "platform/Realtime.h"
#include "spectra/ArrayViews.h"

namespace vellumic {

class NoisePostfilter {
 public:
  NoisePostfilter();  // size 256

  // Half the frame length: 2, 4, 8, ..., 8192; other values, or the present one, do nothing.
  // A new size sizes and zeroes all state.
  void setSize(int size);

  // input, output: size + 1 bins; may be the same.
  void process(const ConstView<Eigen::ArrayXcf>& input,
               Eigen::Ref<Eigen::ArrayXcf> output) noexcept VELLUMIC_NONBLOCKING;

  // The next frame's noise is that frame's power, the history restarts.
  void reset() noexcept VELLUMIC_NONBLOCKING;

  // Prepare and adopt in one; off the audio path.
  void applyParameters(const NoiseEstimatorSettings& noise, const SpectralGainSettings& gain);

  int size() const noexcept { return size_; }

  NoiseEstimator noiseEstimator;
  SpectralGain spectralGain;

 private:
  int size_ = 256;
  Eigen::ArrayXf power_;
};

}  // namespace vellumic
