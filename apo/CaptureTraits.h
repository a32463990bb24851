// The differences between the three objects, as data.
#pragma once

#include <windows.h>

#include <span>

#include "apo/AudioEngine.h"
#include "apo/EffectsList.h"
#include "apo/FormatTable.h"
#include "apo/OwnInterfaces.h"
#include "control/ParameterWorker.h"
#include "parameters/Image.h"

namespace vellumic {

// Registration records, see RegistrationRecord.h.
extern APO_REG_PROPERTIES recordEFX, recordMFX, recordKDMFX;

// Ten-band equaliser on an endpoint.
struct EndpointEffectTraits {
  using OwnInterface = IVellumicAPOCaptureEFX;
  static constexpr const APO_REG_PROPERTIES& record = recordEFX;
  static constexpr eAPO_TYPE formatType = eAPO_TYPE::eAPO_TYPE_CaptureEFX;
  static constexpr EffectMode lockMode = EffectMode::equalizer;
  static constexpr ParameterThreadTraits worker{.mode = EffectMode::equalizer,
                                                .copiesEqualizerEffect = true};
  static constexpr std::span<const ReportedEffect> effects = equalizerEffects;
  static constexpr bool reportsPendingEffects = true;
  static constexpr bool followsVolume = false;
  static constexpr bool readsOutputPath = true;
  static constexpr bool startsWorkerInsideLock = true;
};

// What both forms of the microphone-array pipeline have in common; a live reload leaves the
// four-channel form for the array mode.
struct ArrayEffectTraits {
  static constexpr ParameterThreadTraits worker{.mode = EffectMode::array,
                                                .copiesEqualizerEffect = false};
  static constexpr std::span<const ReportedEffect> effects = arrayEffects;
  static constexpr bool reportsPendingEffects = false;
  static constexpr bool followsVolume = true;
  static constexpr bool readsOutputPath = false;
};

// Microphone-array pipeline.
struct ModeEffectTraits : ArrayEffectTraits {
  using OwnInterface = IVellumicAPOCaptureMFX;
  static constexpr const APO_REG_PROPERTIES& record = recordMFX;
  static constexpr eAPO_TYPE formatType = eAPO_TYPE::eAPO_TYPE_CaptureMFX;
  static constexpr EffectMode lockMode = EffectMode::array;
  static constexpr bool startsWorkerInsideLock = true;
};

// The pipeline's four-channel form.
struct KeywordDetectorTraits : ArrayEffectTraits {
  using OwnInterface = IVellumicAPOCaptureKDMFX;
  static constexpr const APO_REG_PROPERTIES& record = recordKDMFX;
  static constexpr eAPO_TYPE formatType = eAPO_TYPE::eAPO_TYPE_CaptureKDMFX;
  static constexpr EffectMode lockMode = EffectMode::arrayFourChannel;
  static constexpr bool startsWorkerInsideLock = false;
};

}  // namespace vellumic
