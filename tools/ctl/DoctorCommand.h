// vellumic-ctl doctor: every link of the chain, one line each.
#pragma once

#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/Findings.h"

namespace vellumic::tools {

// Link: services.
void checkServices(Findings& findings);

// wanted as in findMicrophone.
Findings examine(const std::string& wanted);

// Prints; throws CtlError at the end when a link is not ok.
void runDoctor(const CtlOptions& options);

}  // namespace vellumic::tools
