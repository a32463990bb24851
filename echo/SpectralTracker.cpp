#include "echo/SpectralTracker.h"

namespace vellumic {

void SpectralTracker::updatePower(const Eigen::ArrayXcf& spectrum) noexcept {
  power = (1.0F - pole) * spectrum.abs2() + pole * power;
}

void SpectralTracker::updateCross(const Eigen::ArrayXcf& first,
                                  const Eigen::ArrayXcf& second) noexcept {
  cross = pole * cross + ((1.0F - pole) * first) * second.conjugate();
}

}  // namespace vellumic
