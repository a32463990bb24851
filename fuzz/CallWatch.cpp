#include "fuzz/CallWatch.h"

#include <sanitizer/allocator_interface.h>

#include <cstddef>
#include <ctime>

namespace vellumic::fuzz {
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

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

CallWatch::CallWatch() : start_(threadSeconds()) {
  counted = hooked > 0 ? 0 : 1;  // without hooks every call fails
  watching = true;
}

CallWatch::~CallWatch() { watching = false; }

int CallWatch::heapCalls() const { return counted; }

double CallWatch::cpuSeconds() const { return threadSeconds() - start_; }

}  // namespace vellumic::fuzz
