// What one canceller remembers of one loudspeaker reference: the smoothed power spectrum, and per
// block what the filter update takes from it. Arrays over blockLength + 1 bins.
// Thread: real-time only, after setup.
#pragma once

#include <Eigen/Core>

#include "echo/SpectralTracker.h"

namespace vellumic {

struct ReferenceHistory {
  SpectralTracker power;
  Eigen::ArrayXf scaledPower;    // power less what the other reference shares with it
  Eigen::ArrayXcf decorrelated;  // conjugate spectrum, less its part in the other reference

  void setup(Eigen::Index bins);  // allocates only when the size changes
};

}  // namespace vellumic
