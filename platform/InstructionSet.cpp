#include "platform/InstructionSet.h"

#include <algorithm>
#include <atomic>

#if defined(_MSC_VER) && defined(_M_X64)
#include <immintrin.h>
#include <intrin.h>
#endif

namespace vellumic {
namespace {

InstructionSet detect() noexcept {
#if defined(__x86_64__) && defined(__GNUC__)
  __builtin_cpu_init();  // this may run before the compiler's own start-up code
  // Both questions include whether the operating system keeps the upper halves of the registers.
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return InstructionSet::Avx2;
#elif defined(_MSC_VER) && defined(_M_X64)
  int leaf[4];
  __cpuid(leaf, 1);
  constexpr int fmaOsxsaveAvx = 1 << 12 | 1 << 27 | 1 << 28;
  if ((leaf[2] & fmaOsxsaveAvx) != fmaOsxsaveAvx || (_xgetbv(0) & 6) != 6)
    return InstructionSet::Base;
  __cpuidex(leaf, 7, 0);
  if (leaf[1] & 1 << 5) return InstructionSet::Avx2;
#endif
  return InstructionSet::Base;
}

std::atomic<InstructionSet> inForce{machineInstructionSet()};

}  // namespace

const char* nameOf(InstructionSet set) noexcept {
  return set == InstructionSet::Avx2 ? "AVX2" : "base";
}

InstructionSet machineInstructionSet() noexcept {
  static const InstructionSet machine = detect();
  return machine;
}

InstructionSet instructionSet() noexcept VELLUMIC_NONBLOCKING {
  return inForce.load(std::memory_order_relaxed);
}

ScopedInstructionSet::ScopedInstructionSet(InstructionSet set) noexcept
    : previous_(instructionSet()) {
  inForce.store(std::min(set, machineInstructionSet()), std::memory_order_relaxed);
}

ScopedInstructionSet::~ScopedInstructionSet() {
  inForce.store(previous_, std::memory_order_relaxed);
}

}  // namespace vellumic
