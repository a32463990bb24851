// The link to the companion service: a status board in shared memory, its mutex and its event.
//
// All of them are the service's; they are opened here and never created. The service is optional:
// without it every operation falls through. No operation reports a failure to the audio engine.
// Threads: control and worker threads, never the real-time thread. publishStatus() and
// updateStatus() may meet on different threads; opening and closing may not meet either.
#pragma once

#include <utility>

#include "control/Handle.h"
#include "control/StatusBlock.h"
#include "platform/CriticalLock.h"

namespace vellumic {

class CSharedMemoryAccessHandler {
 public:
  CSharedMemoryAccessHandler();   // opens the mutex; without it nothing is ever published
  ~CSharedMemoryAccessHandler();  // closeLink()
  CSharedMemoryAccessHandler(const CSharedMemoryAccessHandler&) = delete;
  CSharedMemoryAccessHandler& operator=(const CSharedMemoryAccessHandler&) = delete;

  // Opens board and event; true when the view and the event are open. No mapping: the event is
  // not tried. A board that cannot be mapped or has another version: the event is still opened.
  // No event: everything is closed again.
  bool open() noexcept { return open(mappingHandle, view, sharedMemoryEvent); }
  static bool open(KernelHandle& mapping, MappedView& view, KernelHandle& event) noexcept;

  // Gives up what open() opened, after an Initialize that failed; the mutex stays.
  void abandonLink() noexcept;

  // Marks the object as gone in its own block, then unmaps without publishing and closes all.
  void closeLink() noexcept;

  // Copies the block to the board and signals the service. Nothing happens while the instance id
  // is null or without the mutex. Waits at most 100 ms for the mutex; on a timeout, and when a
  // dead service left the mutex behind, this publication is dropped.
  void publishStatus() noexcept;

  // Writes fields of the block, ordered against publishStatus(): change(StatusBlock&).
  template <class Change>
  void updateStatus(Change&& change) {
    const LockScope scope(blockLock_);
    std::forward<Change>(change)(statusBlock_);
  }
  [[nodiscard]] StatusBlock statusBlock() {
    const LockScope scope(blockLock_);
    return statusBlock_;
  }

  // Opens those of the two running marks that a service has made. The handles of an earlier lock
  // are replaced and stay open: marks live as long as the process.
  void markRunning() noexcept;

  KernelHandle mappingHandle;
  MappedView view;
  KernelHandle sharedMemoryEvent;
  KernelHandle sharedMemoryMutex;
  KernelHandle apoRunningHandle;
  KernelHandle captureApoRunningHandle;

 private:
  CriticalLock blockLock_;
  StatusBlock statusBlock_{};
};

}  // namespace vellumic
