#include <gtest/gtest.h>

#include <thread>

#include "platform/CriticalLock.h"
#include "platform/InstructionSet.h"

namespace vellumic {
namespace {

TEST(CriticalLock, KeepsOthersOutUntilEveryEntryIsLeft) {
  CriticalLock lock;
  lock.enter();
  ASSERT_TRUE(lock.tryEnter());
  for (const bool free : {false, false, true}) {
    std::thread([&] {
      EXPECT_EQ(lock.tryEnter(), free);
      if (free) lock.leave();
    }).join();
    if (!free) lock.leave();
  }
}

// Kernels may run where the processor has all that they were compiled for.
TEST(InstructionSet, AScopeLowersItAndNeverRaisesItAboveTheMachines) {
  static constexpr int base = 1, avx2 = 2;
  constexpr KernelTable<int> table{&base, &avx2};
  const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  const int machines = hasAvx2 ? avx2 : base;
  EXPECT_EQ(table.chosen(), machines);
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
