// Audio clients that stand in for the loudspeaker's loopback.
#pragma once

#include <windows.h>

#include <audioclient.h>

#include <atomic>
#include <vector>

#include "tools/WaveFile.h"
#include "tools/host/ComTools.h"
#include "tools/render/FarSource.h"

namespace vellumic::tools {

// Plays a file, packet by packet, as the clock of the stream goes on. `started` tells of Start().
ComPtr<IAudioClient> fileLoopback(const WaveData& far, const StreamClock& clock,
                                  std::atomic<bool>& started);

// A capture client opened as if it were a loopback.
ComPtr<IAudioClient> monitorLoopback(ComPtr<IAudioClient> real, std::atomic<bool>& started);

}  // namespace vellumic::tools
