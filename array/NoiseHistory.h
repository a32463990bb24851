// Minimum of each bin over the last `windowFrames` frames, for two spectra.
//
// Every column that leaves the window is replaced and the minima of the pairs above it are taken
// anew up to the root: about log2(windowFrames) columns of work a frame, always the same, and the
// same numbers as a scan of all columns.
//
// Threads: construction allocates and belongs off the audio path; the rest is for one thread.
#pragma once

#include <Eigen/Core>

#include "platform/Realtime.h"
#include "spectra/ArrayViews.h"

namespace vellumic {

// One spectrum's window as a tournament: columns 1 to n - 1 are minima of pairs, n to 2n - 1 the
// window itself, column 1 the minimum of all.
class MinimumWindow {
 public:
  MinimumWindow(int binCount, int windowFrames);  // filled with 1.0

  void replace(int column, const ConstView<Eigen::ArrayXf>& values) noexcept VELLUMIC_NONBLOCKING;
  auto minimum() const noexcept { return columns_.col(1); }
  void fill(float value) noexcept { whole(columns_) = value; }

 private:
  Eigen::ArrayXXf columns_;
};

struct NoiseHistory {
  NoiseHistory(int binCount, int windowFrames);

  void push(const ConstView<Eigen::ArrayXf>& s,
            const ConstView<Eigen::ArrayXf>& s2) noexcept VELLUMIC_NONBLOCKING;
  void restart() noexcept VELLUMIC_NONBLOCKING;  // all 1.0 again; free if nothing was pushed yet

  int binCount;
  int windowFrames;
  int column = 0;  // next to be replaced
  bool untouched = true;
  MinimumWindow historyS, historyS2;
};

}  // namespace vellumic
