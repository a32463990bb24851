// The rate of a one-pole mean whose memory fades with a time constant:
//   mean += rate (value - mean), rate = 1 - exp(-1 / (frame rate * time constant)).
#pragma once

#include <cmath>

namespace vellumic {

// Frames per second and seconds.
inline float smoothingRateOf(float frameRate, float timeConstant) noexcept {
  return 1.0F - std::exp(-1.0F / (frameRate * timeConstant));
}

}  // namespace vellumic
