// What the frame core, the parameter thread and the interface methods of one object share.
//
// Lock order: objectLock, then parameterLock. The frame core gets the LockBlock part alone.
#pragma once

#include <array>
#include <cstddef>

#include "control/Handle.h"
#include "engine/LockBlock.h"

namespace vellumic {

// Places in the parameter thread's wait array.
enum class ThreadEvent : std::size_t {
  reload = 0,   // Global\VellumicAPOPropEvent{instance}, auto-reset
  unused1 = 1,  // 1 to 3: nothing signals them, and a signal has no effect
  unused2 = 2,
  unused3 = 3,
  stop = 4,
  ping = 5,  // Global\VellumicServicePingEvent, auto-reset: publish the status
};
inline constexpr std::size_t threadEventCount = 6;

struct ParameterSync : LockBlock {
  CriticalLock objectLock;  // Initialize from start to end; the thread's start-up
  // Complete before the thread enters its loop, constant from then on.
  std::array<KernelHandle, threadEventCount> parameterEvents;
  // Under parameterLock: duplicate of the event given to GetEffectsList, may be empty.
  KernelHandle effectsChangedEvent;

  [[nodiscard]] KernelHandle& event(ThreadEvent which) noexcept {
    return parameterEvents[static_cast<std::size_t>(which)];
  }

  // Replaces effectsChangedEvent by a duplicate with EVENT_MODIFY_STATE; null drops it. On a
  // failure the stored event stays. Control thread.
  HRESULT setEffectsChangedEvent(HANDLE event) noexcept;
};

}  // namespace vellumic
