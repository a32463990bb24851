#include "platform/CriticalLock.h"

#include <new>

#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#endif

// The real-time thread's try never waits, and its leaving wakes a waiting builder at most.
#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
#include <sanitizer/rtsan_interface.h>
#define VELLUMIC_RTSAN_EXCEPT __rtsan::ScopedDisabler rtsanExcept;
#endif
#endif
#ifndef VELLUMIC_RTSAN_EXCEPT
#define VELLUMIC_RTSAN_EXCEPT
#endif

namespace vellumic {
namespace {

#ifdef _WIN32
using Native = CRITICAL_SECTION;
#else
using Native = pthread_mutex_t;
#endif

Native* native(std::array<std::byte, 64>& storage) noexcept {
  return std::launder(reinterpret_cast<Native*>(storage.data()));
}

static_assert(sizeof(Native) <= 64 && alignof(Native) <= 16);

}  // namespace

#ifdef _WIN32

CriticalLock::CriticalLock() {
  ::new (static_cast<void*>(storage_.data())) Native;
  InitializeCriticalSection(native(storage_));
}
CriticalLock::~CriticalLock() { DeleteCriticalSection(native(storage_)); }
void CriticalLock::enter() { EnterCriticalSection(native(storage_)); }
bool CriticalLock::tryEnter() noexcept VELLUMIC_NONBLOCKING {
  return TryEnterCriticalSection(native(storage_)) != 0;
}
void CriticalLock::leave() noexcept VELLUMIC_NONBLOCKING { LeaveCriticalSection(native(storage_)); }

#else

CriticalLock::CriticalLock() {
  ::new (static_cast<void*>(storage_.data())) Native;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);  // as a critical section is
  pthread_mutex_init(native(storage_), &attributes);
  pthread_mutexattr_destroy(&attributes);
}
CriticalLock::~CriticalLock() { pthread_mutex_destroy(native(storage_)); }
void CriticalLock::enter() { pthread_mutex_lock(native(storage_)); }

bool CriticalLock::tryEnter() noexcept VELLUMIC_NONBLOCKING {
  return vouchedFor([this] {
    VELLUMIC_RTSAN_EXCEPT
    return pthread_mutex_trylock(native(storage_)) == 0;
  });
}

void CriticalLock::leave() noexcept VELLUMIC_NONBLOCKING {
  vouchedFor([this] {
    VELLUMIC_RTSAN_EXCEPT
    pthread_mutex_unlock(native(storage_));
  });
}

#endif

}  // namespace vellumic
