// vellumic-ctl status.
#pragma once

#include "tools/ctl/CtlOptions.h"

namespace vellumic::tools {

// Listens for the time asked for, or with watch until Ctrl+C, then prints; with watch also at
// every change.
void showStatus(const CtlOptions& options);

}  // namespace vellumic::tools
