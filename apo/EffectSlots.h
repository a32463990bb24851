// Where the effects stand among an endpoint's effect properties, as data: for the tools that attach
// them and for the driver package.
//
// In an endpoint's FxProperties key a value is named "{property set},number". A place for one
// effect is a REG_SZ with the class id; a chain, where a driver uses chains, is a REG_MULTI_SZ of
// class ids and hides the place; the modes that the effects stream in are a REG_MULTI_SZ under the
// place's number in a set of their own.
#pragma once

#include <windows.h>

#include <array>

#include "apo/CaptureTraits.h"

namespace vellumic {

inline constexpr GUID effectPropertySet = {
    0xD04E05A6, 0x594B, 0x4FB6, {0xA8, 0x0D, 0x01, 0xAF, 0x5E, 0xED, 0x7D, 0x1D}};
inline constexpr GUID effectModesSet = {
    0xD3993A3F, 0x99C2, 0x4402, {0xB5, 0xEC, 0xA9, 0x2A, 0x03, 0x67, 0x66, 0x4B}};
// Of effectPropertySet: the node type that the effects are for; the null id is any.
inline constexpr unsigned associationProperty = 0;

struct EffectSlot {
  const char* name;  // on command lines
  const APO_REG_PROPERTIES* record;
  eAPO_TYPE formatType;
  unsigned place, chain;  // of effectPropertySet; the modes' number is the place's
};

inline constexpr std::array<EffectSlot, 3> effectSlots{{
    {"efx", &recordEFX, EndpointEffectTraits::formatType, 7, 15},
    {"mfx", &recordMFX, ModeEffectTraits::formatType, 6, 14},
    {"kdmfx", &recordKDMFX, KeywordDetectorTraits::formatType, 9, 17},
}};

// Older drivers' places; unused as soon as one of the stream places is filled.
inline constexpr std::array<unsigned, 2> legacyPlaces{1, 2};
inline constexpr std::array<unsigned, 3> streamPlaces{5, 6, 7};
inline constexpr std::array<unsigned, 3> streamChains{13, 14, 15};

}  // namespace vellumic
