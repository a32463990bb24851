#include "resample/kernels/ConverterKernels.h"

#include "platform/InstructionSet.h"

namespace vellumic {

namespace base {
extern const resample::ConverterKernels converterTable;
}
#if defined(__x86_64__) || defined(_M_X64)
namespace avx2 {
extern const resample::ConverterKernels converterTable;
}
#else
namespace avx2 = base;
#endif

const resample::ConverterKernels& resample::converterKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<ConverterKernels> table{{&base::converterTable, &avx2::converterTable}};
  return table.chosen();
}

}  // namespace vellumic
