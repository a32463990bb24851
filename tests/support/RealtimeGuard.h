// Counts what the calling thread does while a guard lives that the real-time thread must not do:
// heap calls, waiting for a lock, system calls.
//
//   RealtimeGuard guard;
//   engine.process(frames);
//   EXPECT_EQ(guard.violations(), 0) << guard.first();
//
// Works by interposition: an executable that links vellumic_realtime_guard replaces malloc and its
// kin (operator new and delete come down to them), pthread_mutex_lock, the waits, and the system
// call wrappers of the C library. pthread_mutex_trylock and pthread_mutex_unlock pass. What the C
// library does inside itself, as printf's own write, is not seen.
//
// Sanitizers interpose the same functions and Windows has no interposition: there `active` is
// false and the count stays 0. One guard a thread at a time.
#pragma once

namespace vellumic {

class RealtimeGuard {
 public:
#ifdef VELLUMIC_REALTIME_GUARD
  static constexpr bool active = true;
#else
  static constexpr bool active = false;
#endif

  // Ends the program if the interposition is not in force: a dead guard would pass every test.
  RealtimeGuard() noexcept;
  ~RealtimeGuard();
  RealtimeGuard(const RealtimeGuard&) = delete;
  RealtimeGuard& operator=(const RealtimeGuard&) = delete;

  // Forbidden calls of this thread since construction.
  [[nodiscard]] int violations() const noexcept;
  // The name of the first of them, "nothing" without one.
  [[nodiscard]] const char* first() const noexcept;
};

// For the replaced functions: counts a call if the calling thread is under a guard.
void noteForbiddenCall(const char* name) noexcept;

}  // namespace vellumic
