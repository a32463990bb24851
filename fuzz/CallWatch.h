// What one call of the frame path cost: calls that are forbidden there, and its processor time.
#pragma once

#include <chrono>
#include <cstddef>

#include "tests/support/RealtimeGuard.h"

namespace vellumic::fuzz {

#if __has_feature(address_sanitizer)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

class CallWatch {
 public:
  CallWatch();
  ~CallWatch();
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;

  // Heap calls of this thread; without AddressSanitizer waits and system calls, too.
  int forbiddenCalls() const;
  double cpuSeconds() const;

 private:
  std::chrono::nanoseconds start_;
  RealtimeGuard guard_;  // counts nothing under a sanitizer
};

}  // namespace vellumic::fuzz
