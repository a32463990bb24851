// Which build this is.
#pragma once

#include <string>

namespace vellumic::tools {

std::string versionLine(const char* program);  // "vellumic-ctl 3.18 (commit 0123456789ab)"

}  // namespace vellumic::tools
