// The command line of vellumic-host, read and checked, nothing opened yet.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace vellumic::tools {

struct HostOptions {
  std::vector<std::string> classes;  // in the order in which they process
  GUID mode{};
  bool speech = false;   // the mode is speech
  std::string endpoint;  // name or GUID; empty: the default
  std::vector<std::string> settingsFiles, assignments;
  std::string farFile, monitor;
  std::string reloadFile;    // on top of the settings, every other reload
  double reloadEvery = 0.0;  // s; 0: never
  double liveSeconds = 0.0;  // 0: from a file
  float volume = 1.0F;
  bool service = false, list = false;
  bool selfTest = false;
  double selfTestSeconds = 60.0;  // of live sound
  std::string selfTestStage;      // not empty: this process is one of the self-test's
  std::string inputFile, outputFile;

  [[nodiscard]] bool storesSettings() const {
    return !settingsFiles.empty() || !assignments.empty() || !reloadFile.empty();
  }
};

// Nothing when help was asked for and printed. Throws UsageError.
std::optional<HostOptions> parseHostOptions(int argc, const char* const* argv);

}  // namespace vellumic::tools
