#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/CriticalLock.h"
#include "platform/Realtime.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

struct Count {
  int violations;
  std::string first;
};

Count under(const std::function<void()>& action) {
  int violations = 0;
  const char* first = nullptr;
  {
    RealtimeGuard guard;
    action();
    violations = guard.violations();
    first = guard.first();
  }
  return {violations, first};
}

struct Call {
  const char* name;
  int violations;
  std::function<void()> action;
};

TEST(RealtimeGuard, CountsEveryForbiddenCallAndNamesTheFirst) {
  if (!RealtimeGuard::active) GTEST_SKIP() << "no interposition in this build";
  std::mutex mutex;
  CriticalLock lock;
  std::condition_variable condition;
  std::atomic<int> word{0};
  void* volatile block = nullptr;
  std::vector<float>* volatile vector = nullptr;
  struct alignas(64) Wide {
    float values[16];
  };
  Wide* volatile wide = nullptr;

  const Call calls[] = {
      {"malloc", 1, [&] { block = std::malloc(8); }},
      {"realloc", 1, [&] { block = std::realloc(block, 4000); }},
      {"free", 1, [&] { std::free(block); }},
      {"calloc", 2,
       [&] {
         block = std::calloc(2, 8);
         std::free(block);
       }},
      {"malloc", 2, [&] { vector = new std::vector<float>(100); }},
      {"free", 2, [&] { delete vector; }},
      {"aligned_alloc", 2,
       [&] {
         wide = new Wide;
         delete wide;
       }},
      {"pthread_mutex_lock", 1, [&] { std::lock_guard scope(mutex); }},
      {"pthread_mutex_lock", 1, [&] { LockScope scope(lock); }},
      {"nanosleep", 1, [] { std::this_thread::sleep_for(std::chrono::nanoseconds(1)); }},
      {"sched_yield", 1, [] { std::this_thread::yield(); }},
  };
  for (const Call& call : calls) {
    const Count count = under(call.action);
    EXPECT_EQ(count.violations, call.violations) << call.name;
    EXPECT_EQ(count.first, call.name);
  }
  // These wait in steps, as often as the library sees fit.
  std::unique_lock held(mutex);
  EXPECT_GE(under([&] { condition.wait_for(held, std::chrono::milliseconds(1)); }).violations, 1);
  std::thread waker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    word.store(1);
    word.notify_one();
  });
  EXPECT_GE(under([&] { word.wait(0); }).violations, 1);
  waker.join();
}

#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
void allocateOnTheFramePath(void* volatile& block) VELLUMIC_NONBLOCKING { block = std::malloc(8); }

TEST(RealtimeSanitizer, EndsTheProgramAtAnAllocationOnTheFramePath) {
  void* volatile block = nullptr;
  EXPECT_DEATH(allocateOnTheFramePath(block), "malloc");
}
#endif
#endif

}  // namespace
}  // namespace vellumic
