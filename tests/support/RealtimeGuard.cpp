#include "tests/support/RealtimeGuard.h"

#include <cstdio>
#include <cstdlib>

namespace vellumic {
namespace {

// In the executable's own TLS block: reading them allocates nothing.
thread_local constinit bool watched = false;
thread_local constinit int count = 0;
thread_local constinit const char* firstCall = nullptr;

}  // namespace

void noteForbiddenCall(const char* name) noexcept {
  if (watched && count++ == 0) firstCall = name;
}

RealtimeGuard::RealtimeGuard() noexcept {
  count = 0;
  watched = true;
  if constexpr (active) {
    // Through pointers: the compiler knows malloc and assumes that it leaves `count` alone.
    void* (*volatile allocate)(std::size_t) = std::malloc;
    void (*volatile release)(void*) = std::free;
    release(allocate(1));
    if (count != 2) {
      std::fputs("RealtimeGuard: malloc is not replaced in this program\n", stderr);
      std::abort();
    }
  }
  count = 0;
}

RealtimeGuard::~RealtimeGuard() { watched = false; }

int RealtimeGuard::violations() const noexcept { return count; }

const char* RealtimeGuard::first() const noexcept { return count == 0 ? "nothing" : firstCall; }

}  // namespace vellumic
