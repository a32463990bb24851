// vellumic-host --selftest: everything that the product does on a machine, a verdict of ten lines,
// and a file to send back. What it changes is put back, also after Ctrl+C or a crash.
#pragma once

#include <string>

#include "tools/host/selftest/Stages.h"

namespace vellumic::tools {

inline constexpr char reportName[] = "vellumic-selftest.json";

// False when a step was not ok. An older report stays: the new one's name gets a number. Throws
// std::runtime_error if the report cannot be written.
bool selfTest(const StageOptions& options, const std::string& wantedFile);

}  // namespace vellumic::tools
