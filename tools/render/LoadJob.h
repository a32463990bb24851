// From options to a job: reads every file that the options name and checks them together.
#pragma once

#include "parameters/SettingsFile.h"
#include "tools/render/RenderOptions.h"

namespace vellumic::tools {

// Throws std::runtime_error with one line: the file, what is wrong, what to do.
RenderJob loadJob(const RenderOptions& options, SettingsWarnings& warnings);

}  // namespace vellumic::tools
