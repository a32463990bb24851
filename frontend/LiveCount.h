// How many objects of a kind are alive, for tests that watch what a hand-over holds.
#pragma once

#include <atomic>

namespace vellumic {

template <class Kind>
class LiveCount {
 public:
  LiveCount() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  ~LiveCount() { count_.fetch_sub(1, std::memory_order_relaxed); }
  LiveCount(const LiveCount&) = delete;
  LiveCount& operator=(const LiveCount&) = delete;

  static int alive() noexcept { return count_.load(std::memory_order_relaxed); }

 private:
  inline static std::atomic<int> count_{0};
};

}  // namespace vellumic
