// A volume control that stays where it is put, with two channels.
#pragma once

#include <windows.h>

#include <endpointvolume.h>

#include "tools/host/ComTools.h"

namespace vellumic::tools {

// linear: 0 to 1; 0 is muted.
ComPtr<IAudioEndpointVolume> fixedVolume(float linear);

}  // namespace vellumic::tools
