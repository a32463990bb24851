// The processor time of the calling thread alone, fine enough for a single call.
#pragma once

#include <windows.h>

#include <x86intrin.h>

#include <chrono>
#include <optional>

namespace vellumic::tools {

class OwnTime {
 public:
  // Nothing where the system does not count it.
  static std::optional<unsigned long long> cycles() {
    unsigned long long count = 0;
    if (!QueryThreadCycleTime(GetCurrentThread(), &count) || count == 0) return std::nullopt;
    return count;
  }

  // Of cycles counted since this object was made; a while later it is exact.
  [[nodiscard]] double microseconds(unsigned long long count) const {
    const std::chrono::duration<double, std::micro> passed = Clock::now() - start_;
    const auto stamps = static_cast<double>(__rdtsc() - startStamp_);
    return static_cast<double>(count) * passed.count() / stamps;
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start_ = Clock::now();
  unsigned long long startStamp_ = __rdtsc();
};

}  // namespace vellumic::tools
