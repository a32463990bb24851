// vellumic-ctl volume and mute: read only.
#pragma once

#include <string>

namespace vellumic::tools {

// device: a part of a microphone's name or id; empty: the default microphone. Throws CtlError.
void showVolume(const std::string& device);
void showMute(const std::string& device);

}  // namespace vellumic::tools
