// How many handles this process holds, of any kind: events, threads, files, registry keys.
#pragma once

#include <windows.h>

#include <cstdint>

namespace vellumic::test {

// By trying every value, since Wine does not count them: the system gives the lowest free one.
inline int openHandles() {
  constexpr int longestGap = 4096;
  int open = 0;
  std::uintptr_t value = 4;
  for (int gap = 0; gap < longestGap; ++gap, value += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) == FALSE) continue;
    ++open;
    gap = 0;
  }
  return open;
}

}  // namespace vellumic::test
