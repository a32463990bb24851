// The designed equaliser, ready to be handed to the real-time thread: a plain record without filter
// memories. It is designed by whoever builds a parameter set and adopted between two frames.
#pragma once

#include <array>

#include "filters/BiquadSection.h"
#include "parameters/EqualizerSettings.h"

namespace vellumic {

// One band of one channel: its section and whether it runs.
struct EqualizerBand {
  BiquadSection section;
  bool enabled = false;

  // Designs unconditionally. On only if `enable` is exactly 1; a peak of unity gain is off, as it
  // would change nothing. Other types run at unity gain too.
  void set(float enable, int type, float frequency, float gain, float q, float sampleRate) noexcept;
};

using EqualizerBands = std::array<std::array<EqualizerBand, equalizerBands>, equalizerSides>;

struct EqualizerRecord {
  bool active = false;  // with all bands off too, as long as the master is on
  EqualizerBands bands{};

  // Master off leaves the bands of `previous` as they were. Otherwise every band is designed anew
  // from the settings; what a design leaves alone comes from `previous`. Not for the real-time
  // thread (trigonometry), but free of locks and allocations.
  static EqualizerRecord design(const EqualizerSettings& settings, float sampleRate,
                                const EqualizerRecord& previous) noexcept;
};

}  // namespace vellumic
