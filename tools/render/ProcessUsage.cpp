#include "tools/render/ProcessUsage.h"

#ifdef _WIN32
#include <windows.h>
// The memory counters need the base header.
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

namespace vellumic::tools {

#ifdef _WIN32

double cpuSeconds() {
  FILETIME created, ended, kernel, user;
  if (!GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user)) return 0.0;
  const auto seconds = [](const FILETIME& time) {
    return (static_cast<double>(time.dwHighDateTime) * 4294967296.0 + time.dwLowDateTime) * 1e-7;
  };
  return seconds(kernel) + seconds(user);
}

double peakMegabytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return 0.0;
  return static_cast<double>(counters.PeakWorkingSetSize) * 1e-6;
}

#else

namespace {

rusage usage() {
  rusage result{};
  getrusage(RUSAGE_SELF, &result);
  return result;
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

double cpuSeconds() {
  const rusage used = usage();
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

double peakMegabytes() { return static_cast<double>(usage().ru_maxrss) * 1024e-6; }

#endif

}  // namespace vellumic::tools
