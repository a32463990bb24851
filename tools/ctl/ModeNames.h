// Short names of the audio processing modes, as command lines and reports use them.
#pragma once

#include <windows.h>

#include <string>

namespace vellumic::tools {

// "speech"; the id as text where it is none of the platform's seven.
std::string modeText(const GUID& id);

}  // namespace vellumic::tools
