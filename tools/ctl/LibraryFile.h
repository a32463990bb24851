// What can be told about the library's file without loading it.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace vellumic::tools {

// IMAGE_FILE_MACHINE_... of a program file; nothing if it is none.
std::optional<WORD> machineOf(const std::wstring& file);

// Whether the account of the audio service may read and execute it; nothing if its permissions
// cannot be read.
std::optional<bool> audioServiceMayRead(const std::wstring& file);

// What the system says of the signature in the file: 0 trusted, else TRUST_E_... or CERT_E_...
LONG signatureOf(const std::wstring& file);

}  // namespace vellumic::tools
