// A recursive mutual exclusion lock with a try that never waits: a critical section on Windows,
// a pthread mutex elsewhere.
//
// Threads: enter() on control and worker threads only, it waits. tryEnter() and leave() on any
// thread; the real-time thread uses only these two. leave() may wake a waiting thread, which is
// the one system call of that path.
#pragma once

#include <array>
#include <cstddef>

#include "platform/Realtime.h"

namespace vellumic {

class CriticalLock {
 public:
  CriticalLock();
  ~CriticalLock();
  CriticalLock(const CriticalLock&) = delete;
  CriticalLock& operator=(const CriticalLock&) = delete;

  void enter();
  [[nodiscard]] bool tryEnter() noexcept VELLUMIC_NONBLOCKING;
  void leave() noexcept VELLUMIC_NONBLOCKING;

 private:
  // Room for either system's lock, so that no platform header is needed here.
  alignas(16) std::array<std::byte, 64> storage_;
};

// Holds a lock for a scope; control and worker threads.
class LockScope {
 public:
  explicit LockScope(CriticalLock& lock) : lock_(lock) { lock_.enter(); }
  ~LockScope() { lock_.leave(); }
  LockScope(const LockScope&) = delete;
  LockScope& operator=(const LockScope&) = delete;

 private:
  CriticalLock& lock_;
};

}  // namespace vellumic
