#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/CriticalLock.h"
#include "platform/Realtime.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

TEST(RealtimeGuard, CountsEveryForbiddenCallAndNamesTheFirst) {
  if (!RealtimeGuard::active) GTEST_SKIP() << "no interposition in this build";
  using namespace std::chrono_literals;
  struct alignas(64) Wide {};
  std::mutex mutex, heldMutex;
  std::unique_lock held(heldMutex);
  CriticalLock lock;
  std::condition_variable condition;
  void* volatile block = std::malloc(8);
  const char* volatile letters = nullptr;
  const Wide* volatile wide = nullptr;

  const struct {
    const char* name;  // of the first
    std::function<void()> action;
  } calls[] = {
      {"nothing", [&] { lock.tryEnter() ? lock.leave() : std::abort(); }},
      {"realloc", [&] { block = std::realloc(block, 4000); }},
      {"free", [&] { std::free(block); }},
      {"malloc", [&] { block = std::malloc(8); }},
      {"free", [&] { std::free(block); }},
      {"calloc", [&] { block = std::calloc(2, 8); }},
      {"free", [&] { std::free(block); }},
      {"malloc", [&] { letters = new char[100]; }},
      {"free", [&] { delete[] letters; }},
      {"aligned_alloc", [&] { wide = new Wide; }},
      {"pthread_mutex_lock", [&] { const std::lock_guard scope(mutex); }},
      {"pthread_mutex_lock", [&] { const LockScope scope(lock); }},
      {"pthread_cond_clockwait", [&] { condition.wait_for(held, 1ms); }},
      {"nanosleep", [] { std::this_thread::sleep_for(1ns); }},
      {"sched_yield", [] { std::this_thread::yield(); }},
  };
  for (const auto& [name, action] : calls) {
    const char* first = nullptr;
    {
      const RealtimeGuard guard;
      action();
      first = guard.violations() > 0 ? guard.first() : "nothing";
    }
    EXPECT_STREQ(first, name);
  }
  delete wide;
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
