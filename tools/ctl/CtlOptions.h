// The command line of vellumic-ctl, read and checked, nothing opened yet.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vellumic::tools {

enum class CtlCommand {
  listSettings,
  showSetting,
  setValues,
  applyFile,
  exportFile,
  activateSetting,
  status,
  volume,
  mute,
  endpoints,
  attach,
  detach,
  doctor
};

struct CtlOptions {
  CtlCommand command = CtlCommand::status;
  std::optional<std::string> setting;    // digits; nothing: the active one
  std::vector<std::string> assignments;  // NAME=VALUE
  std::string file;
  bool fade = false, changedOnly = false;
  bool watch = false, json = false;
  std::optional<double> seconds;
  std::string device;  // a part of an endpoint's name or id; empty: the default microphone
  std::vector<std::string> classes{"efx", "mfx"}, modes{"default", "raw", "speech"};
  bool replace = false, keep = false;  // other effects in the same place
  bool restart = false, dryRun = false;
  std::string backupFile;
};

// what() is one line for the user: the file, key or option, what is wrong and how to mend it.
class CtlError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Nothing when help was asked for and printed. Throws CtlError.
std::optional<CtlOptions> parseCtlOptions(int argc, const char* const* argv);

}  // namespace vellumic::tools
