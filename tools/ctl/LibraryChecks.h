// The doctor's checks of the library: registration, file, signature.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/Findings.h"

namespace vellumic::tools {

// Links: registered, record, file, readable, signature, protection.
void checkLibrary(Findings& findings);

// Below HKEY_LOCAL_MACHINE: the keys of the driver components that bring audio effects.
std::vector<std::wstring> componentKeys();

}  // namespace vellumic::tools
