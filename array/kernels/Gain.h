// The steps of array/SpectralGain.h and of the postfilter around it on all bins of a frame. Powers
// are exponentials of logarithms, within 3 units in the last place for results above 0.1.
#pragma once

#include "parameters/StageSettings.h"
#include "platform/Realtime.h"

namespace vellumic {

inline constexpr float gainEpsilon = 1e-10F;  // floor of all denominators

struct GainKernels {
  // Of `bins` complex values, real and imaginary part in turn.
  void (*power)(const float* spectrum, int bins, float* power) noexcept VELLUMIC_NONBLOCKING;
  void (*magnitude)(const float* spectrum, int bins,
                    float* magnitude) noexcept VELLUMIC_NONBLOCKING;

  // Both passes: powers in, amplitude gains out. Without `cleanPower`, which a first frame has not,
  // the a priori ratio is that of the frame alone.
  void (*passes)(const float* power, const float* noise, const float* cleanPower, int bins,
                 const SpectralGainSettings& settings, float snrFloor,
                 float* gain) noexcept VELLUMIC_NONBLOCKING;

  // gain times `factor`, and the power that it leaves: 0 where that is not finite.
  void (*finish)(const float* power, int bins, float factor, float* gain,
                 float* cleanPower) noexcept VELLUMIC_NONBLOCKING;

  // output = gain * input, both complex; may be the same.
  void (*apply)(const float* gain, const float* input, int bins,
                float* output) noexcept VELLUMIC_NONBLOCKING;
};

const GainKernels& gainKernels() noexcept VELLUMIC_NONBLOCKING;

namespace base {
extern const GainKernels gain;
}
namespace avx2 {
extern const GainKernels gain;
}

}  // namespace vellumic
