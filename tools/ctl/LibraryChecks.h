// The doctor's checks of the library: registration, file, signature.
#pragma once

#include "tools/ctl/Findings.h"

namespace vellumic::tools {

// Links: registered, record, file, readable, signature, protection.
void checkLibrary(Findings& findings);

}  // namespace vellumic::tools
