// First-order smoothing of the power of a spectrum, or of the product of two, bin by bin.
//
// y = pole * y + (1 - pole) * x, one step per block.
// Thread: real-time only, after setup.
#pragma once

#include <Eigen/Core>

namespace vellumic {

struct SpectralTracker {
  float pole = 0.7F;
  Eigen::ArrayXf power;   // sized by setupPower
  Eigen::ArrayXcf cross;  // sized by setupCross

  // Size and zero. They allocate only when the length changes.
  void setupPower(Eigen::Index length) { power.setZero(length); }
  void setupCross(Eigen::Index length) { cross.setZero(length); }

  void updatePower(const Eigen::ArrayXcf& spectrum) noexcept;
  // cross follows first * conj(second).
  void updateCross(const Eigen::ArrayXcf& first, const Eigen::ArrayXcf& second) noexcept;
};

}  // namespace vellumic
