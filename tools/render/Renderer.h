// Runs a sound file through the frame core as the audio engine would run a microphone: the same
// first build, lock, calls and live reloads, on one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "frontend/PipelineProbe.h"
#include "tools/WaveFile.h"
#include "tools/render/RenderJob.h"

namespace vellumic::tools {

// One call of the frame path that has just ended.
struct CallReport {
  double seconds;       // stream time at the end of the call
  double share;         // of the whole run, 0 to 1
  double microseconds;  // the call took
  bool completedBlock;  // of the array pipeline
  const PipelineProbe& probe;
};
using CallObserver = std::function<void(const CallReport&)>;

struct RenderResult {
  WaveData output;
  std::string effects;      // one line: which effects run, or why none does
  std::size_t delayFrames;  // of the path as it stands after lock, at the device rate
  double processedSeconds;
};

RenderResult render(const RenderJob& job, const CallObserver& observer);

}  // namespace vellumic::tools
