#include "fuzz/CallWatch.h"

#include "tools/ThreadTime.h"

#if __has_feature(address_sanitizer)
#include <sanitizer/allocator_interface.h>
#endif

namespace vellumic::fuzz {
#if __has_feature(address_sanitizer)

namespace {

thread_local constinit bool watching = false;
thread_local constinit int counted = 0;

void onMalloc(const volatile void*, std::size_t) {
  if (watching) ++counted;
}
void onFree(const volatile void*) {
  if (watching) ++counted;
}
const int hooked = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);

}  // namespace

CallWatch::CallWatch() : start_(tools::threadTime()) {
  counted = hooked > 0 ? 0 : 1;  // without hooks every call fails
  watching = true;
}
CallWatch::~CallWatch() { watching = false; }
int CallWatch::forbiddenCalls() const { return counted; }

#else

CallWatch::CallWatch() : start_(tools::threadTime()) {}
CallWatch::~CallWatch() = default;
int CallWatch::forbiddenCalls() const { return guard_.violations(); }

#endif

double CallWatch::cpuSeconds() const {
  return std::chrono::duration<double>(tools::threadTime() - start_).count();
}

}  // namespace vellumic::fuzz
