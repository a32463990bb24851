// What the real-time thread and the builders of parameter sets share.
//
// Lock order: the object's own lock, then parameterLock. The real-time thread only tries it.
#pragma once

#include <cstdint>

#include "platform/CriticalLock.h"

namespace vellumic {

struct LockBlock {
  CriticalLock parameterLock;
  // Under parameterLock: a new pending set is ready. Set at birth; cleared when the first setting
  // has been read, so that nothing is adopted from blocks that were never built.
  std::uint8_t pending = 1;
  // Selects the loop that only passes the front pair through. Nothing sets it; read by the
  // real-time thread without the lock, so it must not change while audio runs.
  std::uint8_t holdFlag = 0;
};

}  // namespace vellumic
