// Events that programs of every account may open.
#pragma once

#include "control/Handle.h"

namespace vellumic {

// Creates or opens the named event: auto-reset, not signalled, not inheritable, with
// EVENT_ALL_ACCESS for everyone. Null on any failure. Any thread.
[[nodiscard]] KernelHandle createOpenEvent(const wchar_t* name) noexcept;

// An unnamed or named manual-reset event, not signalled; null on failure.
[[nodiscard]] KernelHandle createManualEvent(const wchar_t* name = nullptr) noexcept;

// A handle of our own to somebody's event, good for SetEvent; null on failure, see GetLastError.
[[nodiscard]] KernelHandle duplicateEvent(HANDLE event) noexcept;

}  // namespace vellumic
