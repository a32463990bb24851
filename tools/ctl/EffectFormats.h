// Whether the effects accept a stream format, by the library's own table.
#pragma once

#include <windows.h>

#include <mmreg.h>

#include <string>

#include "apo/EffectSlots.h"

namespace vellumic::tools {

// Empty if the effect accepts the format on both sides; else what it needs.
std::string refusalOf(const EffectSlot& slot, const WAVEFORMATEXTENSIBLE& wave);

}  // namespace vellumic::tools
