// The module's lock, made while the library loads.
#pragma once

#include <windows.h>

namespace vellumic {

// A critical section whose failure to initialise is told to a debugger; the only diagnostic that
// the library has. Where it failed, lock() and unlock() do nothing. Any thread but the real-time
// one.
class CSyncObject {
 public:
  using Initializer = BOOL(WINAPI*)(LPCRITICAL_SECTION, DWORD spinCount);
  explicit CSyncObject(Initializer initialize = ::InitializeCriticalSectionAndSpinCount) noexcept;
  ~CSyncObject();
  CSyncObject(const CSyncObject&) = delete;
  CSyncObject& operator=(const CSyncObject&) = delete;

  void lock() noexcept;  // usable with std::scoped_lock
  void unlock() noexcept;

 private:
  CRITICAL_SECTION section_;
  bool ready_;
};

}  // namespace vellumic
