// Short-time objective intelligibility (STOI): how well the envelopes of clean speech live on in a
// signal, 0 (not at all) to 1.
//
// C. H. Taal, R. C. Hendriks, R. Heusdens, J. Jensen, "An Algorithm for Intelligibility Prediction
// of Time-Frequency Weighted Noisy Speech", IEEE TASLP 19(7), 2011: at 10 kHz, 15 third-octave
// bands from 150 Hz, frames of 25.6 ms of which the silent ones (40 dB below the loudest) are left
// out, correlation over 384 ms after normalising and clipping at -15 dB.
#pragma once

#include <vector>

#include "tools/quality/Correlation.h"

namespace vellumic::quality {

// Thread: const calls may run side by side.
class Intelligibility {
 public:
  // target: clean speech at 16 kHz.
  explicit Intelligibility(View target);

  // signal: as long as the target, aligned with it. 0 if less than 384 ms of speech are there.
  double operator()(View signal) const;

 private:
  using Bands = std::vector<float>;  // bandCount per frame

  Bands bandsOf(const std::vector<float>& signal) const;

  std::vector<bool> spoken_;  // per frame of 12.8 ms
  Bands clean_;
};

}  // namespace vellumic::quality
