// Channels of sound files at sceneRate. Errors as in tools/WaveFile.h.
#pragma once

#include <string>

#include "tools/quality/Convolution.h"

namespace vellumic::quality {

Channels readChannels(const std::string& path);  // an error for any other rate or an empty file
void writeChannels(const std::string& path, const Channels& channels);

}  // namespace vellumic::quality
