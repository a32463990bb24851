// What DelayEstimator does per bin and per lag. All instruction sets give the same result.
// Real-time safe.
#pragma once

#include "echo/kernels/Planes.h"
#include "platform/Realtime.h"

namespace vellumic {

struct CorrelationKernels {
  // second = conj(first) * second
  void (*correlate)(ConstPlanes first, Planes second, int bins) noexcept VELLUMIC_NONBLOCKING;

  // Index of the greatest magnitude, the first of equal ones; what is not a number does not count.
  int (*firstPeak)(const float* samples, int count) noexcept VELLUMIC_NONBLOCKING;
};

const CorrelationKernels& correlationKernels() noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
