// The per-bin arithmetic of ResidualSuppressor. Symbols as there; `bins` is blockLength / 2 + 1.
// Bin by bin all instruction sets give the same bits. Real-time safe.
#pragma once

#include "echo/kernels/Planes.h"
#include "platform/Realtime.h"

namespace vellumic {

struct SuppressorKernels {
  // R = pole R + (1 - pole) |reference|;  gain = 1 - (c R)^2 strength / |E|^2, floor to 1;
  // c += step (|E| - c R c), 0 to greatestCoupling;  E *= gain
  struct Frame {
    const float* reference;
    float pole, strength, step, floor, greatestCoupling;
    float *referenceMagnitude, *couplingGain;  // R, c
    float* gain;
    Planes error;  // E
  };
  void (*suppress)(const Frame&, int bins) noexcept VELLUMIC_NONBLOCKING;
};

const SuppressorKernels& suppressorKernels() noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
