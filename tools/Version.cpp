#include "tools/Version.h"

#include "VellumicVersion.h"

namespace vellumic::tools {

std::string versionLine(const char* program) {
  return std::string(program) + " " + VELLUMIC_VERSION_TEXT;
}

}  // namespace vellumic::tools
