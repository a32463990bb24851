// The C library's functions that a RealtimeGuard counts, replaced for the whole program. Heap
// functions go on to glibc's own names, which need no look-up (the look-up itself allocates).
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <ctime>

#include "tests/support/RealtimeGuard.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace {

using vellumic::noteForbiddenCall;

// The function that this program hides, found on first use.
template <class Function>
class Hidden {
 public:
  constexpr explicit Hidden(const char* name) : name_(name) {}

  template <class... Arguments>
  auto operator()(Arguments... arguments) {
    noteForbiddenCall(name_);
    Function* function = function_.load(std::memory_order_relaxed);
    if (function == nullptr) {
      function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name_));
      if (function == nullptr) std::abort();
      function_.store(function, std::memory_order_relaxed);
    }
    return function(arguments...);
  }

 private:
  const char* name_;
  std::atomic<Function*> function_{nullptr};
};

}  // namespace

extern "C" {

// Heap.
void* malloc(size_t size) noexcept {
  noteForbiddenCall("malloc");
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
  noteForbiddenCall("calloc");
  return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) noexcept {
  noteForbiddenCall("realloc");
  return __libc_realloc(block, size);
}
void free(void* block) noexcept {
  if (block != nullptr) noteForbiddenCall("free");
  __libc_free(block);
}

// NOLINTBEGIN(cppcoreguidelines-macro-usage): one line for each function that only passes on
#define HIDE(result, name, parameters, arguments, ...)        \
  result name parameters __VA_ARGS__ {                        \
    static constinit Hidden<result parameters> hidden(#name); \
    return hidden arguments;                                  \
  }
// NOLINTEND(cppcoreguidelines-macro-usage)

HIDE(void*, aligned_alloc, (size_t alignment, size_t size), (alignment, size), noexcept)
HIDE(void*, memalign, (size_t alignment, size_t size), (alignment, size), noexcept)
HIDE(int, posix_memalign, (void** block, size_t alignment, size_t size), (block, alignment, size),
     noexcept)

// Locks, waits and wakes.
HIDE(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex), noexcept)
HIDE(int, pthread_mutex_timedlock, (pthread_mutex_t * mutex, const timespec* until), (mutex, until),
     noexcept)
HIDE(int, pthread_rwlock_rdlock, (pthread_rwlock_t * lock), (lock), noexcept)
HIDE(int, pthread_rwlock_wrlock, (pthread_rwlock_t * lock), (lock), noexcept)
HIDE(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
     (condition, mutex))
HIDE(int, pthread_cond_timedwait,
     (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until),
     (condition, mutex, until))
HIDE(int, pthread_cond_clockwait,
     (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until),
     (condition, mutex, clock, until))
HIDE(int, pthread_cond_signal, (pthread_cond_t * condition), (condition), noexcept)
HIDE(int, pthread_cond_broadcast, (pthread_cond_t * condition), (condition), noexcept)
HIDE(int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
     (thread, attributes, body, argument), noexcept)
HIDE(int, pthread_join, (pthread_t thread, void** result), (thread, result))
HIDE(int, sem_wait, (sem_t * semaphore), (semaphore))
HIDE(int, sem_post, (sem_t * semaphore), (semaphore), noexcept)

// System calls. std::atomic's wait and notify come through syscall().
HIDE(ssize_t, read, (int file, void* bytes, size_t size), (file, bytes, size))
HIDE(ssize_t, write, (int file, const void* bytes, size_t size), (file, bytes, size))
HIDE(int, close, (int file), (file))
HIDE(int, poll, (pollfd * files, nfds_t count, int milliseconds), (files, count, milliseconds))
HIDE(int, nanosleep, (const timespec* time, timespec* left), (time, left))
HIDE(int, clock_nanosleep, (clockid_t clock, int flags, const timespec* time, timespec* left),
     (clock, flags, time, left))
HIDE(int, usleep, (useconds_t microseconds), (microseconds))
HIDE(unsigned, sleep, (unsigned seconds), (seconds))
HIDE(int, sched_yield, (), (), noexcept)
HIDE(void*, mmap, (void* address, size_t size, int access, int flags, int file, off_t offset),
     (address, size, access, flags, file, offset), noexcept)
HIDE(int, munmap, (void* address, size_t size), (address, size), noexcept)

long syscall(long number, ...) noexcept {
  static constinit Hidden<long(long, ...)> hidden("syscall");
  std::va_list list;
  va_start(list, number);
  std::array<long, 6> words{};
  for (long& word : words) word = va_arg(list, long);
  va_end(list);
  return hidden(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

}  // extern "C"
