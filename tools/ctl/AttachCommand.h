// vellumic-ctl attach and detach: puts effects on a microphone's list, and takes them off again.
#pragma once

#include "tools/ctl/CtlOptions.h"

namespace vellumic::tools {

// Both print what they change before they change it, and end as they were when something fails.
// They throw CtlError.
void attachEffects(const CtlOptions& options);
void detachEffects(const CtlOptions& options);

}  // namespace vellumic::tools
