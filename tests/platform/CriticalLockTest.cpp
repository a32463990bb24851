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

}  // namespace
}  // namespace vellumic
