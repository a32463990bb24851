// One call's worth of frames: picks up a parameter change without blocking, then runs the frames
// through the loop that the change's state asks for.
#pragma once

#include "engine/ProcessContext.h"
#include "platform/Realtime.h"

namespace vellumic {

// Thread: real-time. Never blocks and never allocates; the only lock is tried, and when it is
// taken the frames go out on the sets in force. A silent buffer gives a zeroed one and leaves all
// state alone; a flag other than valid and silent leaves the output as it was.
void processBlock(ProcessContext& context) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
