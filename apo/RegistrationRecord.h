// The registration record of each class, and its place in the registry:
// HKEY_CLASSES_ROOT\AudioEngine\AudioProcessingObjects\{class id}.
//
// Threads: control thread.
#pragma once

#include <windows.h>

#include <span>

#include "apo/AudioEngine.h"

namespace vellumic {

// EFX, MFX, KDMFX: the order of registration. The records lie in RT_DATA, resident for the
// real-time thread, and are complete before DllMain runs.
std::span<const APO_REG_PROPERTIES* const> registrationRecords() noexcept;

// E_POINTER without a record. Stops at the first failure, which is returned; keys are closed on
// every path. A record whose class id has no text does nothing and succeeds. On success every
// watcher's event is signalled.
HRESULT writeRecord(const APO_REG_PROPERTIES* record) noexcept;
HRESULT removeRecord(const APO_REG_PROPERTIES* record) noexcept;

// Events to signal when a record was written; nobody in this library adds one.
void addRecordWatcher(HANDLE event);

}  // namespace vellumic
