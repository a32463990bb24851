// The doctor's checks of a microphone: what its keys and its format say, and what can be heard.
#pragma once

#include "tools/ctl/Findings.h"
#include "tools/ctl/Microphones.h"

namespace vellumic::tools {

// Links: endpoint, attached, enhancements, format, mode.
void checkEndpoint(Findings& findings, const Microphone& microphone);

// Links: setting, volume.
void checkSetting(Findings& findings);
void checkVolume(Findings& findings, const Microphone& microphone);

// Links: alive, calls. Records from the microphone for about a second, which makes the audio engine
// load its effects.
void checkSound(Findings& findings, const Microphone& microphone);

}  // namespace vellumic::tools
