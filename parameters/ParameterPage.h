// The files that follow from the catalogue: docs/parameters.md and settings/factory.toml.
// generate_parameter_files writes them; a test compares them.
#pragma once

#include <string>

namespace vellumic {

std::string parameterPage();        // Markdown
std::string factorySettingsFile();  // TOML, every parameter

}  // namespace vellumic
