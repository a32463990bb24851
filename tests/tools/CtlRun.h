// vellumic-ctl called as a function in a test's own registry.
#pragma once

#include "tests/tools/CommandLine.h"
#include "tools/ctl/CtlMain.h"

namespace vellumic::tools {

inline ToolRun ctl(const std::string& words) { return captured(ctlMain, words); }

}  // namespace vellumic::tools
