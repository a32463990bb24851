// A setting as a file that the system's registry editor imports.
#pragma once

#include <string>

#include "parameters/Catalogue.h"

namespace vellumic::tools {

// UTF-16 with a byte order mark, one value per line with the bits as stored; importing it does not
// change which setting is active. `name` is the setting's.
std::wstring regFileText(const std::wstring& name, const RawValues& values);

}  // namespace vellumic::tools
