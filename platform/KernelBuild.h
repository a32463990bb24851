// Included by kernel sources alone, before everything else of theirs: names the set that this
// build of the source is for. cmake defines VELLUMIC_KERNEL_AVX2 for the AVX2 build and nothing for
// the base build.
//
// A kernel source puts all it defines into `namespace vellumic::VELLUMIC_KERNEL_SET` and includes
// only xsimd, its own header and headers without inline code of weight: an inline function of a
// shared header that this file's flags compiled could be the one that the linker keeps for all.
// scripts/check-kernels reads the object files and fails on such a function.
#pragma once

#include <xsimd/xsimd.hpp>

#if defined(VELLUMIC_KERNEL_AVX2)
#define VELLUMIC_KERNEL_SET avx2
namespace vellumic::avx2 {
using Arch = xsimd::fma3<xsimd::avx2>;
}
#elif defined(__SSE4_2__)
#define VELLUMIC_KERNEL_SET base
namespace vellumic::base {
using Arch = xsimd::sse4_2;
}
#else
#define VELLUMIC_KERNEL_SET base
namespace vellumic::base {
using Arch = xsimd::default_arch;
}
#endif

namespace vellumic::VELLUMIC_KERNEL_SET {

using Floats = xsimd::batch<float, Arch>;
using Doubles = xsimd::batch<double, Arch>;
inline constexpr int floatLanes = static_cast<int>(Floats::size);
inline constexpr int doubleLanes = static_cast<int>(Doubles::size);

}  // namespace vellumic::VELLUMIC_KERNEL_SET
