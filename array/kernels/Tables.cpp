// The tables by which the kernels of this folder are reached; compiled once, for every machine.
#include "array/kernels/Activity.h"
#include "array/kernels/Beam.h"
#include "array/kernels/Gain.h"
#include "array/kernels/NoiseEstimation.h"
#include "array/kernels/PrincipalVectors.h"
#include "platform/InstructionSet.h"

namespace vellumic {

#if defined(__x86_64__) || defined(_M_X64)
namespace fast = avx2;
#else
namespace fast = base;
#endif

const ActivityKernels& activityKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<ActivityKernels> table{{&base::activity, &fast::activity}};
  return table.chosen();
}

const BeamKernels& beamKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<BeamKernels> table{{&base::beam, &fast::beam}};
  return table.chosen();
}

const GainKernels& gainKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<GainKernels> table{{&base::gain, &fast::gain}};
  return table.chosen();
}

const NoiseKernels& noiseKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<NoiseKernels> table{{&base::noise, &fast::noise}};
  return table.chosen();
}

const PrincipalVectorKernels& principalVectorKernels() noexcept VELLUMIC_NONBLOCKING {
  constexpr KernelTable<PrincipalVectorKernels> table{
      {&base::principalVectors, &fast::principalVectors}};
  return table.chosen();
}

}  // namespace vellumic
