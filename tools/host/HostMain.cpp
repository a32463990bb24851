#include "tools/host/HostMain.h"

#include <cstdio>
#include <exception>

#include "tools/OutputFile.h"
#include "tools/host/ComTools.h"
#include "tools/host/HostOptions.h"
#include "tools/host/HostRun.h"
#include "tools/host/selftest/SelfTest.h"

namespace vellumic::tools {
namespace {

bool run(const HostOptions& options) {
  const StageOptions stage{.endpoint = options.endpoint, .seconds = options.selfTestSeconds};
  if (options.selfTest) return selfTest(stage, options.outputFile);
  if (!options.selfTestStage.empty()) {
    runStage(options.selfTestStage, stage);
  } else {
    const Apartment apartment;
    HostRun(options).go();
  }
  return true;
}

}  // namespace

int hostMain(int argc, const char* const* argv) {
  try {
    bool good = true;
    if (const auto options = parseHostOptions(argc, argv)) good = run(*options);
    finishPrinting();
    return good ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-host: %s\n", error.what());
    return 1;
  }
}

}  // namespace vellumic::tools
