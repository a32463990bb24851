#include "filters/kernels/BandDiagonal.h"
#include "platform/InstructionSet.h"

namespace vellumic {

namespace base {
extern const EqualizerKernels equalizerTable;
}
#if defined(__x86_64__) || defined(_M_X64)
namespace avx2 {
extern const EqualizerKernels equalizerTable;
}
#else
namespace avx2 = base;
#endif

const EqualizerKernels& equalizerKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<EqualizerKernels> table{{&base::equalizerTable, &avx2::equalizerTable}};
  return table.chosen();
}

}  // namespace vellumic
