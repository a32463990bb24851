#include "control/ParameterSync.h"

#include "control/OpenEvent.h"

namespace vellumic {

HRESULT ParameterSync::setEffectsChangedEvent(HANDLE event) noexcept {
  KernelHandle duplicate;
  if (event != nullptr) {
    duplicate = duplicateEvent(event);
    if (!duplicate) return HRESULT_FROM_WIN32(GetLastError());
  }
  const LockScope scope(parameterLock);
  effectsChangedEvent = std::move(duplicate);
  return S_OK;
}

}  // namespace vellumic
