// The one memory from which an object takes its parameter blocks, so that no heap is touched once
// audio runs: 40,000,000 bytes, handed out in order, given back all at once.
//
// There is no free list: memory returns when the last live block is released. Pages that were
// never handed out are never touched, so an arena costs only what is used of it.
//
// Threads: control and worker threads, under parameterLock once a worker runs.
#pragma once

#include <cstddef>
#include <memory>

namespace vellumic {

class Arena {
 public:
  static constexpr std::size_t capacity = 40'000'000;

  Arena() noexcept;  // without memory nothing can be allocated

  // The next `size` bytes, zeroed, aligned to 4 as long as all sizes are multiples of 4; null
  // when used() + size would reach the capacity or more.
  [[nodiscard]] void* allocate(std::size_t size) noexcept;

  // False without a live block or for null. The last release clears what was used.
  bool release(void* block) noexcept;

  std::size_t used() const noexcept { return used_; }
  std::size_t liveCount() const noexcept { return liveCount_; }

 private:
  struct Free {
    void operator()(std::byte* memory) const noexcept;
  };
  std::unique_ptr<std::byte[], Free> memory_;
  std::size_t used_ = 0;
  std::size_t liveCount_ = 0;
  bool active_;
};

}  // namespace vellumic
