#include "tools/host/selftest/Stages.h"

#include <algorithm>
#include <utility>

namespace vellumic::tools {
namespace {

using Stage = void (*)(StageLog&, const StageOptions&);

const std::vector<std::pair<std::string, Stage>>& stages() {
  static const std::vector<std::pair<std::string, Stage>> all{
      {"devices", devicesStage}, {"register", registerStage}, {"library", libraryStage},
      {"formats", formatsStage}, {"signal", signalStage},     {"live", liveStage},
      {"volume", volumeStage},   {"loopback", loopbackStage}, {"system", systemStage},
      {"unload", unloadStage}};
  return all;
}

bool undo(StageLog& log, const std::string& name, const std::string& argument) {
  if (name == "unregister")
    unregisterStage(log, argument);
  else if (name == "settings-back")
    settingsBackStage(log);
  else if (name == "volume-back")
    volumeBackStage(log, argument);
  else if (name == "key-back")
    keyBackStage(log);
  else
    return false;
  return true;
}

}  // namespace

const std::vector<std::string>& stageNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> result;
    for (const auto& [name, stage] : stages()) result.push_back(name);
    return result;
  }();
  return names;
}

void runStage(const std::string& name, const StageOptions& options) {
  // No window of the system's waits for a click.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  const Apartment apartment;
  StageLog log;
  const auto found = std::ranges::find(stages(), name, &std::pair<std::string, Stage>::first);
  if (found != stages().end()) {
    try {
      found->second(log, options);
    } catch (const std::exception&) {  // nothing of it can go on; the others can
      log.tellThrown("what it needs");
    }
    return;
  }
  const std::size_t space = name.find(' ');
  const std::string argument = space == std::string::npos ? "" : name.substr(space + 1);
  if (!undo(log, name.substr(0, space), argument))
    throw std::runtime_error("--selftest-stage " + name + ": there is no such stage");
}

}  // namespace vellumic::tools
