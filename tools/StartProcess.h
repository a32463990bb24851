// Starts a process, again for a second where the system refuses: what looks at every new process
// may do so for a moment, and so does Wine at times. Windows only.
#pragma once

#include <windows.h>

#include <string>

namespace vellumic::tools {

// As CreateProcessW; false: GetLastError tells why. The caller closes the handles in `information`.
inline bool startProcess(std::wstring command, bool inheritHandles, DWORD flags,
                         STARTUPINFOW& startup, PROCESS_INFORMATION& information) {
  constexpr int attempts = 5;
  constexpr DWORD pauseMs = 250;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (attempt > 0) Sleep(pauseMs);
    if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, inheritHandles ? TRUE : FALSE,
                       flags, nullptr, nullptr, &startup, &information))
      return true;
  }
  return false;
}

}  // namespace vellumic::tools
