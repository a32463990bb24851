// The effects that an object reports to the audio engine.
#pragma once

#include <windows.h>

#include <array>
#include <span>

#include "parameters/Image.h"

namespace vellumic {

inline constexpr GUID effectType(unsigned long id) noexcept {
  return {id, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}};
}
inline constexpr GUID effectEchoCancellation = effectType(0x6F64ADBE);
inline constexpr GUID effectNoiseSuppression = effectType(0x6F64ADBF);
inline constexpr GUID effectAutomaticGain = effectType(0x6F64ADC0);
inline constexpr GUID effectBeamforming = effectType(0x6F64ADC1);
inline constexpr GUID effectEqualizer = effectType(0x6F64ADC3);

struct ReportedEffect {
  Entry entry;  // reported while its mask is set
  GUID id;
};

// In the order of the list.
inline constexpr std::array<ReportedEffect, 4> arrayEffects{{
    {Entry::beamformingEffect, effectBeamforming},
    {Entry::echoEffect, effectEchoCancellation},
    {Entry::noiseEffect, effectNoiseSuppression},
    {Entry::levelEffect, effectAutomaticGain},
}};
// What the endpoint effect could show, in its settled order. Of these only the equaliser is built.
inline constexpr std::array<GUID, 12> endpointEffectTypes{{
    effectType(0x6F64ADC6),
    effectType(0x6F64ADC5),
    effectType(0x6F64ADCA),
    effectEqualizer,
    effectType(0x6F64ADCE),
    effectType(0x6F64ADC4),
    {0x7B36DADB, 0x7E64, 0x4166, {0xA3, 0xA0, 0x01, 0x38, 0x39, 0xF4, 0x2F, 0xAD}},
    effectType(0x6F64ADCD),
    effectType(0x6F64ADCC),
    effectEchoCancellation,
    effectNoiseSuppression,
    effectAutomaticGain,
}};
// Nothing writes this entry: the endpoint effect keeps its equaliser to itself.
inline constexpr std::array<ReportedEffect, 1> equalizerEffects{{
    {Entry::equalizerEffect, endpointEffectTypes[3]},
}};

// CoTaskMemAlloc'd ids of the effects whose mask is set, if the image's effect is on at all; null
// and 0 for none. E_OUTOFMEMORY. The caller holds parameterLock.
HRESULT listEffects(std::span<const ReportedEffect> effects, ImageView image, MaskView mask,
                    GUID** ids, UINT* count) noexcept;

}  // namespace vellumic
