#include "control/SyncObject.h"

namespace vellumic {

CSyncObject::CSyncObject(Initializer initialize) noexcept
    : ready_(initialize(&section_, 0) != FALSE) {
  if (!ready_) OutputDebugStringA("CSyncObject::InitializeCriticalSectionAndSpinCount() Failed!\n");
}

CSyncObject::~CSyncObject() {
  if (ready_) DeleteCriticalSection(&section_);
}

void CSyncObject::lock() noexcept {
  if (ready_) EnterCriticalSection(&section_);
}

void CSyncObject::unlock() noexcept {
  if (ready_) LeaveCriticalSection(&section_);
}

}  // namespace vellumic
