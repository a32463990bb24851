#include "tools/host/selftest/Chained.h"

#include <algorithm>
#include <stdexcept>

#include "tools/ctl/Attachment.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {

bool inChain(const std::string& endpointGuid, const std::string& className) {
  try {
    const auto values = readEffectProperties(wide(endpointGuid));
    return std::ranges::any_of(
        attachedEffects(values.value_or(RegistryValues{})),
        [&](const AttachedEffect& one) { return one.inChain && className == one.slot->name; });
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace vellumic::tools
