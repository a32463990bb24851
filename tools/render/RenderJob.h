// One run of the renderer: everything that decides its output, files already read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/ProcessingMode.h"
#include "parameters/Catalogue.h"
#include "parameters/Image.h"
#include "tools/WaveFile.h"

namespace vellumic::tools {

enum class CaptureClass { efx, mfx, kdmfx };

// Built at initialisation and lock.
constexpr EffectMode lockModeOf(CaptureClass captureClass) {
  switch (captureClass) {
    case CaptureClass::mfx:
      return EffectMode::array;
    case CaptureClass::kdmfx:
      return EffectMode::arrayFourChannel;
    default:
      return EffectMode::equalizer;
  }
}
// Built by a live reload: the keyword detector leaves its four-channel form then.
constexpr EffectMode reloadModeOf(CaptureClass captureClass) {
  return captureClass == CaptureClass::efx ? EffectMode::equalizer : EffectMode::array;
}

struct TimeSpan {
  double start = 0.0, length = 0.0;  // s
};

// The whole setting that is in force from `seconds` on.
struct SettingChange {
  double seconds = 0.0;
  RawValues values{};
};

struct RenderJob {
  CaptureClass captureClass = CaptureClass::mfx;
  ProcessingMode mode = ProcessingMode::standard;
  RawValues settings{};
  std::vector<SettingChange> changes;  // in order of time
  WaveData input;
  std::uint32_t channelMask = 0;
  std::optional<WaveData> far;    // what the loudspeakers play, from the start of the input on
  std::vector<TimeSpan> farGaps;  // nothing plays
  std::uint32_t blockFrames = 480;
  float volume = 1.0F;  // linear endpoint volume
  bool muted = false;
  bool tail = false;   // render the delay out: a longer output
  bool align = false;  // drop the delay
};

}  // namespace vellumic::tools
