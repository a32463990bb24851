#include "tools/ctl/ModeNames.h"

#include <array>

#include "apo/ProcessingModes.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {

std::string modeText(const GUID& id) {
  constexpr std::array<const char*, processingModes.size()> names{
      "default", "raw", "speech", "communications", "media", "movie", "notification"};
  const int position = modeIndex(id);
  return position < 0 ? guidText(id) : names[static_cast<std::size_t>(position)];
}

}  // namespace vellumic::tools
