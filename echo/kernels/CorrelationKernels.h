// What DelayEstimator does per bin and per lag. All instruction sets give the same result.
// Real-time safe.
#pragma once

#include "echo/kernels/Planes.h"

namespace vellumic {

struct CorrelationKernels {
  // second = conj(first) * second
  void (*correlate)(ConstPlanes first, Planes second, int bins) noexcept;

  // Index of the greatest magnitude, the first of equal ones; what is not a number does not count.
  int (*firstPeak)(const float* samples, int count) noexcept;
};

const CorrelationKernels& correlationKernels() noexcept;

}  // namespace vellumic
