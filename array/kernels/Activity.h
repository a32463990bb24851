// The speech presence recursion on all bins of one microphone; see array/ActivityEstimator.h. The
// exponential is within 2 units in the last place.
#pragma once

#include "platform/Realtime.h"

namespace vellumic {

struct ActivityConstants {
  float likelihoodScale, likelihoodSlope, likelihoodBias;
  float smoothingRate, noiseRate;
};

struct ActivityKernels {
  // All arrays hold `bins` values; smoothed and noise are the state.
  void (*update)(const float* power, int bins, const ActivityConstants& constants, float* smoothed,
                 float* noise, float* probability) noexcept VELLUMIC_NONBLOCKING;
};

const ActivityKernels& activityKernels() noexcept VELLUMIC_NONBLOCKING;

namespace base {
extern const ActivityKernels activity;
}
namespace avx2 {
extern const ActivityKernels activity;
}

}  // namespace vellumic
