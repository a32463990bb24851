#include "array/NoiseHistory.h"

#include <algorithm>

#include "array/kernels/NoiseEstimation.h"

namespace vellumic {
namespace {

constexpr float startMinimum = 1.0F;

}  // namespace

MinimumWindow::MinimumWindow(int binCount, int windowFrames)
    : columns_(Eigen::ArrayXXf::Constant(binCount, 2 * windowFrames, startMinimum)) {}

void MinimumWindow::replace(int column,
                            const ConstView<Eigen::ArrayXf>& values) noexcept VELLUMIC_NONBLOCKING {
  Eigen::Index node = columns_.cols() / 2 + column;
  columns_.col(node) = values;
  for (node /= 2; node >= 1; node /= 2)
    noiseKernels().lesser(columns_.col(2 * node).data(), columns_.col(2 * node + 1).data(),
                          static_cast<int>(columns_.rows()), columns_.col(node).data());
}

NoiseHistory::NoiseHistory(int bins, int frames)
    : binCount(bins),
      windowFrames(std::max(frames, 1)),
      historyS(bins, windowFrames),
      historyS2(bins, windowFrames) {}

void NoiseHistory::push(const ConstView<Eigen::ArrayXf>& s,
                        const ConstView<Eigen::ArrayXf>& s2) noexcept VELLUMIC_NONBLOCKING {
  historyS.replace(column, s);
  historyS2.replace(column, s2);
  if (++column == windowFrames) column = 0;
  untouched = false;
}

void NoiseHistory::restart() noexcept VELLUMIC_NONBLOCKING {
  if (untouched) return;
  historyS.fill(startMinimum);
  historyS2.fill(startMinimum);
  untouched = true;
}

}  // namespace vellumic
