// What a locked capture object does, in words and numbers.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tools/render/RenderJob.h"

namespace vellumic {
struct CaptureCore;
}

namespace vellumic::tools {

// One line: the effects that run, or why none does.
std::string effectSummary(CaptureCore& core, const RenderJob& job);

// Frames at the device rate from input to output.
std::size_t delayFrames(CaptureCore& core, const RenderJob& job);

// Why the Windows library would not take this format in this mode; nothing when it would.
std::optional<std::string> refusal(const RenderJob& job);

}  // namespace vellumic::tools
