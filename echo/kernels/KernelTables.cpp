// One table of each kernel per instruction set; see platform/InstructionSet.h.
#include "echo/kernels/CorrelationKernels.h"
#include "echo/kernels/KalmanKernels.h"
#include "echo/kernels/ReferenceKernels.h"
#include "echo/kernels/SuppressorKernels.h"
#include "platform/InstructionSet.h"

namespace vellumic {

namespace base {
extern const KalmanKernels kalmanKernels;
extern const ReferenceKernels referenceKernels;
extern const SuppressorKernels suppressorKernels;
extern const CorrelationKernels correlationKernels;
}  // namespace base

#if defined(__x86_64__) || defined(_M_X64)
namespace avx2 {
extern const KalmanKernels kalmanKernels;
extern const ReferenceKernels referenceKernels;
extern const SuppressorKernels suppressorKernels;
extern const CorrelationKernels correlationKernels;
}  // namespace avx2
#else
namespace avx2 = base;
#endif

const KalmanKernels& kalmanKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<KalmanKernels> table{&base::kalmanKernels, &avx2::kalmanKernels};
  return table.chosen();
}

const ReferenceKernels& referenceKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<ReferenceKernels> table{&base::referenceKernels, &avx2::referenceKernels};
  return table.chosen();
}

const SuppressorKernels& suppressorKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<SuppressorKernels> table{&base::suppressorKernels,
                                                 &avx2::suppressorKernels};
  return table.chosen();
}

const CorrelationKernels& correlationKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<CorrelationKernels> table{&base::correlationKernels,
                                                  &avx2::correlationKernels};
  return table.chosen();
}

}  // namespace vellumic
