#include <gtest/gtest.h>

#include <thread>

#include "platform/CriticalLock.h"

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

// A lost update shows here as a wrong sum, and as a race to ThreadSanitizer.
TEST(CriticalLock, TriesAndWaitsShareOneValueSafely) {
  constexpr int rounds = 20000;
  CriticalLock lock;
  int value = 0;
  int adopted = 0;
  std::thread writer([&] {
    for (int i = 0; i < rounds; ++i) {
      LockScope scope(lock);
      ++value;
    }
  });
  for (int i = 0; i < rounds; ++i) {
    if (!lock.tryEnter()) continue;
    ++value;
    ++adopted;
    lock.leave();
  }
  writer.join();
  EXPECT_EQ(value, rounds + adopted);
}

}  // namespace
}  // namespace vellumic
