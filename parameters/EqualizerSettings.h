// Settings of the ten-band equaliser, decoded from the raw values.
#pragma once

#include <array>

#include "parameters/Raw.h"

namespace vellumic {

struct EqualizerBandSettings {
  float enable = 0.0F;  // on only at exactly 1
  int type = 0;         // BiquadType code 0 to 7; every other stored value gives 0, a flat gain
  float frequency = 1000.0F;  // Hz
  float gain = 1.0F;          // linear
  float q = 0.7F;
};

struct EqualizerSettings {
  float master = 0.0F;  // on only at exactly 1; mirrored in the image as stored
  std::array<std::array<EqualizerBandSettings, equalizerBands>, equalizerSides> bands{};

  // Whether no band can be heard: each has a gain of exactly 1 or an enable of exactly 0. What the
  // image reports, whatever the type of the band; the sections do not go by it.
  bool allBandsNeutral() const noexcept;

  // No range check on frequency, gain and Q: bad values may reach the ears, never memory.
  static EqualizerSettings from(RawView raw) noexcept;
};

}  // namespace vellumic
