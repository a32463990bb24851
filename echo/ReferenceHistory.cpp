#include "echo/ReferenceHistory.h"

namespace vellumic {

void ReferenceHistory::setup(Eigen::Index bins) {
  power.setupPower(bins);
  scaledPower.setZero(bins);
  decorrelated.setZero(bins);
}

}  // namespace vellumic
