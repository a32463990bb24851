// Processor time of the calling thread, whatever else the machine does. Windows counts it in ticks
// of some 10 ms.
#pragma once

#include <chrono>
#ifdef _WIN32
#include <windows.h>
#else
#include <ctime>
#endif

namespace vellumic::tools {

inline std::chrono::nanoseconds threadTime() {
#ifdef _WIN32
  FILETIME created, ended, kernelTime, userTime;
  ULARGE_INTEGER kernel, user;
  GetThreadTimes(GetCurrentThread(), &created, &ended, &kernelTime, &userTime);
  kernel.LowPart = kernelTime.dwLowDateTime, kernel.HighPart = kernelTime.dwHighDateTime;
  user.LowPart = userTime.dwLowDateTime, user.HighPart = userTime.dwHighDateTime;
  return std::chrono::nanoseconds(100 * static_cast<long long>(kernel.QuadPart + user.QuadPart));
#else
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
#endif
}

}  // namespace vellumic::tools
