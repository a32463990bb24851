// The per-bin arithmetic of ReferenceStatistics. Symbols as there.
// Bin by bin all instruction sets give the same bits. Real-time safe.
#pragma once

#include "echo/kernels/Planes.h"
#include "platform/Realtime.h"

namespace vellumic {

struct ReferenceKernels {
  struct Update {
    ConstPlanes spectrum0, spectrum1;  // X
    float pole, crossFactor;
    float *power0, *power1;               // P
    Planes cross;                         // S
    float *scaledPower0, *scaledPower1;   // G
    Planes decorrelated0, decorrelated1;  // D
  };
  void (*update)(const Update&, int bins) noexcept VELLUMIC_NONBLOCKING;

  // |spectrum|
  void (*magnitude)(ConstPlanes spectrum, float* magnitude, int bins) noexcept VELLUMIC_NONBLOCKING;
};

const ReferenceKernels& referenceKernels() noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
