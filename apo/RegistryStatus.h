// What a registry function answered, as the HRESULT that COM wants.
#pragma once

#include <windows.h>

namespace vellumic {

inline HRESULT fromStatus(LSTATUS status) noexcept {
  return HRESULT_FROM_WIN32(static_cast<unsigned long>(status));
}

}  // namespace vellumic
