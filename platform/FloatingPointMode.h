// The floating-point mode of the audio threads.
#pragma once

#include "platform/Realtime.h"

namespace vellumic {

// Sets flush-to-zero (MXCSR bit 15), then denormals-are-zero (bit 6), on the calling thread and
// leaves them set: the audio engine's thread keeps them after the call. Real-time safe.
void cutDenormals() noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
