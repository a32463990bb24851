// Registration of the library: class keys, type library and registration records.
//
// Threads: one at a time.
#pragma once

#include <windows.h>

namespace vellumic {

enum class InstallScope { machine, user };  // user: under HKEY_CURRENT_USER\Software\Classes

// Scripts, type library, then the records of EFX, MFX and KDMFX; the first failure ends it and is
// returned.
HRESULT registerLibrary(InstallScope scope) noexcept;

// The reverse, to the end; the first failure is returned.
HRESULT unregisterLibrary(InstallScope scope) noexcept;

}  // namespace vellumic
