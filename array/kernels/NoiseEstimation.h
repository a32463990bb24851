// The recursions of array/NoiseEstimator.h on all bins of a frame. Every set gives the same bits
// but for the exponential, which is within 2 units in the last place.
#pragma once

#include "parameters/StageSettings.h"
#include "platform/Realtime.h"

namespace vellumic {

inline constexpr float noiseEpsilon = 1e-10F;  // floor of all denominators

// Arrays of `bins` values.
struct NoiseFrame {
  int bins;
  const float* power;
  const float* previousClean;
  float *S, *minimumS;
  float *S2, *minimumS2;
  float *noiseUnbiased, *noiseBiased;
};

struct NoiseKernels {
  // Three taps over at least three bins; see frequencySmooth.
  void (*smoothBins)(const float* in, int bins, float* out) noexcept VELLUMIC_NONBLOCKING;

  // S follows the power, of which `smoothedPower` is the mean over bins. `mask` is 1 where a rough
  // decision takes the bin for noise alone and else 0, `maskedPower` the power of those bins.
  void (*followPower)(const NoiseFrame& frame, const NoiseEstimatorSettings& settings,
                      const float* smoothedPower, float* mask,
                      float* maskedPower) noexcept VELLUMIC_NONBLOCKING;

  // S2 follows the power of the bins so marked; the two arrays are the means over bins. The noise
  // follows the power where speech is absent, times `biasCompensation`.
  void (*followNoise)(const NoiseFrame& frame, const NoiseEstimatorSettings& settings,
                      const float* smoothedMask, const float* smoothedMaskedPower,
                      float biasCompensation) noexcept VELLUMIC_NONBLOCKING;

  // Element by element: the lesser of a and b.
  void (*lesser)(const float* a, const float* b, int bins,
                 float* out) noexcept VELLUMIC_NONBLOCKING;
};

const NoiseKernels& noiseKernels() noexcept VELLUMIC_NONBLOCKING;

namespace base {
extern const NoiseKernels noise;
}
namespace avx2 {
extern const NoiseKernels noise;
}

}  // namespace vellumic
