// From options to a job: reads the files that the options name and checks them together.
#pragma once

#include "parameters/SettingsFile.h"
#include "tools/render/RenderOptions.h"

namespace vellumic::tools {

// Both throw std::runtime_error with one line: the file, what is wrong, what to do.

// Only the settings and their changes.
RenderJob loadSettings(const RenderOptions& options, SettingsWarnings& warnings);
// Everything else: the sound and how to run it.
RenderJob loadSound(const RenderOptions& options);

}  // namespace vellumic::tools
