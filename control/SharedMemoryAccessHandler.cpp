#include "control/SharedMemoryAccessHandler.h"

#include <cstring>

#include "control/Names.h"

namespace vellumic {
namespace {

constexpr DWORD mutexWaitMs = 100;

StatusBoard* board(const MappedView& view) noexcept {
  return static_cast<StatusBoard*>(view.get());
}

bool isNull(const GUID& guid) noexcept { return IsEqualGUID(guid, GUID{}); }

// A mark is a semaphore, where there is one; an object of another type does not open. What tells is
// that it is held: no access is asked for, and the signal, which services expect to be tried, does
// nothing to a semaphore.
void openMark(KernelHandle& mark, const wchar_t* name) noexcept {
  mark.release();
  mark = KernelHandle(OpenSemaphoreW(0, FALSE, name));
  if (mark) SetEvent(mark.get());
}

}  // namespace

CSharedMemoryAccessHandler::CSharedMemoryAccessHandler()
    : sharedMemoryMutex(OpenMutexW(SYNCHRONIZE, FALSE, sharedMemoryMutexName)) {}

CSharedMemoryAccessHandler::~CSharedMemoryAccessHandler() { closeLink(); }

bool CSharedMemoryAccessHandler::open(KernelHandle& mapping, MappedView& view,
                                      KernelHandle& event) noexcept {
  view.reset();
  event.reset();
  mapping.reset(OpenFileMappingW(FILE_MAP_WRITE, TRUE, sharedMemoryName));
  if (!mapping) return false;
  view.reset(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, sizeof(StatusBoard)));
  if (!view)
    mapping.reset();
  else if (board(view)->version != statusLayoutVersion)
    view.reset();
  event.reset(OpenEventW(EVENT_MODIFY_STATE, TRUE, sharedMemoryEventName));
  if (!event) {
    view.reset();
    mapping.reset();
  }
  return static_cast<bool>(view);
}

void CSharedMemoryAccessHandler::abandonLink() noexcept {
  view.reset();
  mappingHandle.reset();
  sharedMemoryEvent.reset();
}

void CSharedMemoryAccessHandler::closeLink() noexcept {
  updateStatus([](StatusBlock& block) {
    block.initialized = 1;
    block.alive = 0;
  });
  view.reset();
  mappingHandle.reset();
  sharedMemoryEvent.reset();
  sharedMemoryMutex.reset();
  apoRunningHandle.reset();
  captureApoRunningHandle.reset();
}

void CSharedMemoryAccessHandler::publishStatus() noexcept {
  bool named = false;
  updateStatus([&](const StatusBlock& block) { named = !isNull(block.instance); });
  if (!named || !sharedMemoryMutex) return;
  const DWORD result = WaitForSingleObject(sharedMemoryMutex.get(), mutexWaitMs);
  if (result == WAIT_ABANDONED) ReleaseMutex(sharedMemoryMutex.get());  // ours now: pass it on
  if (result != WAIT_OBJECT_0) return;
  if (view) {
    const LockScope scope(blockLock_);
    std::memcpy(&board(view)->block, &statusBlock_, sizeof statusBlock_);
  }
  ReleaseMutex(sharedMemoryMutex.get());
  if (sharedMemoryEvent) SetEvent(sharedMemoryEvent.get());
}

void CSharedMemoryAccessHandler::markRunning() noexcept {
  openMark(apoRunningHandle, apoRunningName);
  openMark(captureApoRunningHandle, captureApoRunningName);
}

}  // namespace vellumic
