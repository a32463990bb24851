#include "tests/support/RealtimeGuard.h"

#include <cstdio>
#include <cstdlib>

namespace vellumic {
namespace {

// In the executable's own TLS block: reading them allocates nothing.
thread_local constinit int depth = 0;
thread_local constinit int count = 0;
thread_local constinit const char* firstCall = nullptr;

}  // namespace

void noteForbiddenCall(const char* name) noexcept {
  if (depth == 0) return;
  ++count;
  if (firstCall == nullptr) firstCall = name;
}

RealtimeGuard::RealtimeGuard() noexcept : countBefore_(count), firstBefore_(firstCall) {
  ++depth;
  if constexpr (active) {
    // Through pointers: the compiler knows malloc and assumes that it leaves `count` alone.
    void* (*volatile allocate)(std::size_t) = std::malloc;
    void (*volatile release)(void*) = std::free;
    release(allocate(1));
    if (count != countBefore_ + 2) {
      std::fputs("RealtimeGuard: malloc is not replaced in this program\n", stderr);
      std::abort();
    }
  }
  count = countBefore_;
  firstCall = nullptr;
}

RealtimeGuard::~RealtimeGuard() {
  --depth;
  if (firstBefore_ != nullptr) firstCall = firstBefore_;
}

int RealtimeGuard::violations() const noexcept { return count - countBefore_; }

const char* RealtimeGuard::first() const noexcept {
  return firstCall == nullptr ? "nothing" : firstCall;
}

}  // namespace vellumic
