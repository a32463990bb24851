#include "spectra/kernels/TransformKernels.h"

#include "platform/InstructionSet.h"

namespace vellumic {

namespace base {
extern const RealTransformKernels realTransformTable;
extern const RightAngleKernels rightAngleTable;
}  // namespace base
#if defined(__x86_64__) || defined(_M_X64)
namespace avx2 {
extern const RealTransformKernels realTransformTable;
extern const RightAngleKernels rightAngleTable;
}  // namespace avx2
#else
namespace avx2 = base;
#endif

const RealTransformKernels& realTransformKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<RealTransformKernels> table{
      {&base::realTransformTable, &avx2::realTransformTable}};
  return table.chosen();
}

const RightAngleKernels& rightAngleKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<RightAngleKernels> table{{&base::rightAngleTable, &avx2::rightAngleTable}};
  return table.chosen();
}

}  // namespace vellumic
