// Independent pieces of work on several threads.
#pragma once

#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace vellumic::quality {

// Calls work(0) to work(count - 1), each once, on up to `jobs` threads; returns when all are done.
// After an exception no more calls begin; the first one is thrown on.
template <class Work>
void inParallel(std::size_t count, unsigned jobs, Work work) {
  std::atomic<std::size_t> next{0};
  std::exception_ptr failure;
  std::mutex guard;
  const auto run = [&] {
    for (std::size_t n = next++; n < count; n = next++) {
      try {
        work(n);
      } catch (...) {
        const std::lock_guard lock(guard);
        if (!failure) failure = std::current_exception();
        next = count;
      }
    }
  };
  {
    std::vector<std::jthread> others;
    for (unsigned j = 1; j < jobs && j < count; ++j) others.emplace_back(run);
    run();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace vellumic::quality
