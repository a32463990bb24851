// The beamformer's work on all bins of a frame: planes in, planes out (array/Planes.h). Every set
// gives the same bits.
#pragma once

#include "platform/Realtime.h"

namespace vellumic {

struct BeamKernels {
  // spectrum: `bins` complex values, real and imaginary part in turn. Bins whose power is above
  // `largest` or not a number become 0.
  void (*zeroAbove)(float* spectrum, int bins, float largest) noexcept VELLUMIC_NONBLOCKING;

  // The same form to planes and to power, real^2 + imaginary^2; `bins` values each.
  void (*split)(const float* spectrum, int bins, float* real, float* imaginary,
                float* power) noexcept VELLUMIC_NONBLOCKING;

  // For every pair of microphones i <= j: mean += rate * (x_j conj(x_i) - mean), in `signal` and,
  // unless it is null, in `noise`. real, imaginary, power: one plane of `rows` per microphone.
  void (*smooth)(const float* real, const float* imaginary, const float* power, int rows,
                 int microphones, float rate, float* signal,
                 float* noise) noexcept VELLUMIC_NONBLOCKING;

  // output: `bins` complex values; the sum over the microphones of spectrum times weight.
  void (*combine)(const float* real, const float* imaginary, const float* weightReal,
                  const float* weightImaginary, int rows, int microphones, int bins,
                  float* output) noexcept VELLUMIC_NONBLOCKING;
};

const BeamKernels& beamKernels() noexcept VELLUMIC_NONBLOCKING;

namespace base {
extern const BeamKernels beam;
}
namespace avx2 {
extern const BeamKernels beam;
}

}  // namespace vellumic
