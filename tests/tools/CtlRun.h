// vellumic-ctl called as a function in a test's own registry.
#pragma once

#include "tests/tools/CommandLine.h"
#include "tools/ctl/CtlMain.h"

namespace vellumic::tools {

inline int ctl(const std::vector<std::string>& arguments) { return called(ctlMain, arguments); }
inline ToolRun captured(const std::vector<std::string>& arguments) {
  return captured(ctlMain, arguments);
}

}  // namespace vellumic::tools
