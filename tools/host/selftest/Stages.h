// The stages of the self-test. Each runs in a process of its own, in this order; see Supervisor.h.
#pragma once

#include <string>
#include <vector>

#include "tools/host/selftest/StageLog.h"

namespace vellumic::tools {

struct StageOptions {
  std::string endpoint;   // part of the microphone's name, or GUID; empty: the default
  double seconds = 60.0;  // of live sound
};

// In the order in which they run.
const std::vector<std::string>& stageNames();
// One of them, or one that undoes a change, printing to the standard output. Throws
// std::runtime_error for a name that there is not.
void runStage(const std::string& name, const StageOptions& options);

void registerStage(StageLog& log, const StageOptions& options);  // for this user, if it must be
void libraryStage(StageLog& log, const StageOptions& options);   // the three classes
void formatsStage(StageLog& log, const StageOptions& options);   // what they accept
void signalStage(StageLog& log, const StageOptions& options);    // known sounds, reloads
void liveStage(StageLog& log, const StageOptions& options);      // the microphone
void volumeStage(StageLog& log, const StageOptions& options);    // its volume control
void loopbackStage(StageLog& log, const StageOptions& options);  // what the loudspeaker plays
void devicesStage(StageLog& log, const StageOptions& options);   // names and formats
void systemStage(StageLog& log, const StageOptions& options);    // services, keys, signatures
void unloadStage(StageLog& log, const StageOptions& options);    // the library goes

// Undo of the above. argument: what was there before.
void unregisterStage(StageLog& log, const std::string& scope);  // "user" or "machine"
void settingsBackStage(StageLog& log);
void volumeBackStage(StageLog& log,
                     const std::string& argument);  // the microphone's GUID, the level
void keyBackStage(StageLog& log);

}  // namespace vellumic::tools
