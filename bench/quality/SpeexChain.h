// The yardstick: SpeexDSP's echo canceller and preprocessor on the same scenes.
#pragma once

#include "tools/quality/Scene.h"

namespace vellumic::quality {

struct SpeexResult {
  Signal output;            // first microphone
  double cpuPerSecond = 0;  // CPU seconds per second of audio, all microphones
};

// One canceller for all microphones with two references and a tail of `tailSeconds`; one
// preprocessor with noise suppression and residual echo suppression per microphone.
SpeexResult runSpeex(const Channels& microphones, const Channels& far, double tailSeconds);

}  // namespace vellumic::quality
