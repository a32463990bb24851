#include "platform/KernelBuild.h"
// Its own build of everything comes first.
#include "echo/kernels/CorrelationKernels.h"
#include "echo/kernels/Lanes.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

void correlate(ConstPlanes first, Planes second, int bins) noexcept VELLUMIC_NONBLOCKING {
  overBins(bins, [&](auto lanes) {
    store(lanes, second, conj(load(lanes, first)) * load(lanes, second));
  });
}

int firstPeak(const float* samples, int count) noexcept VELLUMIC_NONBLOCKING {
  Floats greatest(0.0F);
  overBins(count, [&](auto lanes) {
    const Floats magnitude = xsimd::abs(lanes.load(samples));
    greatest = xsimd::select(magnitude > greatest, magnitude, greatest);
  });
  float lanes[floatLanes], peak = 0.0F;
  greatest.store_unaligned(lanes);
  for (float lane : lanes) peak = lane > peak ? lane : peak;
  if (peak == 0.0F) return 0;
  for (int i = 0; i < count; ++i)
    if (samples[i] == peak || samples[i] == -peak) return i;
  return 0;
}

}  // namespace

extern const CorrelationKernels correlationKernels;
const CorrelationKernels correlationKernels{correlate, firstPeak};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
