#include "tools/host/HostMain.h"

#include <cstdio>
#include <exception>

#include "tools/OutputFile.h"
#include "tools/host/ComTools.h"
#include "tools/host/HostOptions.h"
#include "tools/host/HostRun.h"

namespace vellumic::tools {

int hostMain(int argc, const char* const* argv) {
  try {
    if (const auto options = parseHostOptions(argc, argv)) {
      const Apartment apartment;
      HostRun(*options).go();
    }
    finishPrinting();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-host: %s\n", error.what());
    return 1;
  }
}

}  // namespace vellumic::tools
