// The settings that one command line renders: one, a pair to compare, or a sweep.
#pragma once

#include <string>
#include <vector>

#include "tools/render/LoadJob.h"

namespace vellumic::tools {

struct Variant {
  std::string label;  // "" where there is only one
  RawValues settings{};
  std::vector<SettingChange> changes;
  std::string outputFile;
};

// --compare: the given settings, and the same with the other file in place of every --settings.
// --sweep: the given settings with one value on top of them, for each value.
// Throws as loadSettings() and parseRenderOptions() do.
std::vector<Variant> variantsOf(const RenderOptions& options, SettingsWarnings& warnings);

}  // namespace vellumic::tools
