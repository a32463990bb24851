#include "tools/ctl/CtlMain.h"

#include <cstdio>
#include <exception>

#include "tools/OutputFile.h"
#include "tools/ctl/AttachCommand.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/DoctorCommand.h"
#include "tools/ctl/EndpointsCommand.h"
#include "tools/ctl/SettingsCommands.h"
#include "tools/ctl/StatusCommand.h"
#include "tools/ctl/VolumeCommand.h"

namespace vellumic::tools {
namespace {

void run(const CtlOptions& options) {
  using enum CtlCommand;
  switch (options.command) {
    case listSettings:
      return listStoredSettings();
    case showSetting:
      return showStoredSetting(options);
    case setValues:
      return changeSetting(options);
    case applyFile:
      return applySettingFile(options);
    case exportFile:
      return exportSetting(options);
    case activateSetting:
      return activateStoredSetting(options);
    case status:
      return showStatus(options);
    case volume:
      return showVolume(options.device);
    case mute:
      return showMute(options.device);
    case endpoints:
      return listEndpoints(options.json);
    case attach:
      return attachEffects(options);
    case detach:
      return detachEffects(options);
    case doctor:
      return runDoctor(options);
  }
}

}  // namespace

int ctlMain(int argc, const char* const* argv) {
  try {
    if (const auto options = parseCtlOptions(argc, argv)) run(*options);
    finishPrinting();
    return 0;
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "vellumic-ctl: %s\n", error.what());
    return 1;
  }
}

}  // namespace vellumic::tools
