#include <gtest/gtest.h>

#include <thread>

#include "platform/CriticalLock.h"
#include "platform/InstructionSet.h"

namespace vellumic {
namespace {

bool anotherThreadCanEnter(CriticalLock& lock) {
  bool entered = false;
  std::thread([&] {
    entered = lock.tryEnter();
    if (entered) lock.leave();
  }).join();
  return entered;
}

TEST(CriticalLock, KeepsOthersOutUntilEveryEntryIsLeft) {
  CriticalLock lock;
  lock.enter();
  ASSERT_TRUE(lock.tryEnter());
  EXPECT_FALSE(anotherThreadCanEnter(lock));
  lock.leave();
  EXPECT_FALSE(anotherThreadCanEnter(lock));
  lock.leave();
  EXPECT_TRUE(anotherThreadCanEnter(lock));
}

// Kernels may run where the processor has all that they were compiled for.
bool hasAvx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"); }

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
