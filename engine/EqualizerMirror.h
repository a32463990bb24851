// A copy of the equaliser's state in the parameter image, for readers of the image. The sound does
// not depend on it.
#pragma once

#include "parameters/EqualizerSettings.h"
#include "parameters/Image.h"

namespace vellumic {

// Writes master and enables as stored. With the master on, a setting in which every band is off or
// of unity gain clears the master entry. Coefficients (a1, a2, b0, b1, b2) are written for bands
// that are on; the others keep what the image held, as all do when the master entry is 0.
void mirrorEqualizer(const EqualizerSettings& settings, float sampleRate, ImageView image) noexcept;

}  // namespace vellumic
