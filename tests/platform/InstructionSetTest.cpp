#include <gtest/gtest.h>

#include "platform/InstructionSet.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace vellumic {
namespace {

// What the processor says of itself.
bool hasAvx2() {
#if defined(__x86_64__)
  unsigned a = 0, b = 0, c = 0, d = 0;
  constexpr unsigned fmaOsxsaveAvx = 1U << 12 | 1U << 27 | 1U << 28, avx2 = 1U << 5;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & fmaOsxsaveAvx) != fmaOsxsaveAvx) return false;
  return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & avx2) != 0;
#else
  return false;
#endif
}

TEST(InstructionSet, IsTheMachinesFromTheStart) {
  EXPECT_EQ(machineInstructionSet(), hasAvx2() ? InstructionSet::Avx2 : InstructionSet::Base);
  EXPECT_EQ(instructionSet(), machineInstructionSet());
}

TEST(InstructionSet, AScopeLowersItAndNeverRaisesItAboveTheMachines) {
  static constexpr int base = 1, avx2 = 2;
  constexpr KernelTable<int> table{&base, &avx2};
  const int machines = hasAvx2() ? avx2 : base;
  {
    const ScopedInstructionSet plain(InstructionSet::Base);
    EXPECT_EQ(table.chosen(), base);
    const ScopedInstructionSet best(InstructionSet::Avx2);
    EXPECT_EQ(table.chosen(), machines);
  }
  EXPECT_EQ(table.chosen(), machines);
}

}  // namespace
}  // namespace vellumic
