// How far a signal is from the clean speech that it should hold.
//
// Constructed once per clean signal, then asked for many outputs of the same length.
// Thread: const calls may run side by side.
#pragma once

#include <memory>
#include <vector>

#include "tools/quality/Correlation.h"

namespace vellumic::quality {

// 10 log10 of the part of `signal` that is `target` scaled, over the rest.
// J. Le Roux et al., "SDR - half-baked or well done?", ICASSP 2019.
double scaleInvariantSdr(View target, View signal);

// Mean over 32 ms frames with speech, each held within -10 to 35 dB, after the best scale.
double segmentalSnr(View target, View signal);

// The same as scaleInvariantSdr with the best filter of 512 taps in place of a scale: a steady
// colouring or phase (such as a high-pass) is no distortion, everything that changes over time is.
// E. Vincent et al., "Performance measurement in blind audio source separation", IEEE TASLP 14(4),
// 2006.
class FilterInvariantSdr {
 public:
  explicit FilterInvariantSdr(std::vector<float> target);
  ~FilterInvariantSdr();
  FilterInvariantSdr(FilterInvariantSdr&&) noexcept;
  FilterInvariantSdr& operator=(FilterInvariantSdr&&) noexcept;

  double operator()(View signal) const;  // dB; 0 for a target that is silent or too short

 private:
  struct Factor;
  std::vector<float> target_;
  std::unique_ptr<Factor> factor_;
};

}  // namespace vellumic::quality
