// What an endpoint's effect properties say. Apart from the stages: the effects' own headers and
// those of the settings have words in common.
#pragma once

#include <string>

namespace vellumic::tools {

// Whether a chain of the endpoint names the class ("efx", "mfx", "kdmfx"). False too for an
// endpoint that has no key. guid: with braces.
bool inChain(const std::string& endpointGuid, const std::string& className);

}  // namespace vellumic::tools
