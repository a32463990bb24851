// What the equaliser's bands need per sample, the two channels of a pair side by side.
//
// Per band and sample, in float and in this order (the same as BiquadSection::process()):
//   w = x - z1 a1 - z2 a2;  y = w b0 + z1 b1 + z2 b2;  z2 = z1, z1 = w.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "filters/FloatLanes.h"
#include "parameters/Raw.h"

namespace vellumic {

// One band of both channels.
struct alignas(16) BandLanes {
  float memory[4];       // z1, z1', z2, z2'
  float denominator[4];  // a1, a1', a2, a2'
  float numerator[4];    // b1, b1', b2, b2'
  float direct[4];       // b0, b0', 0, 0
  float mask[4];         // all bits set where the channel's band is on

  // One sample of each channel in the lower pair of x; both channels on.
  FloatLanes process(FloatLanes x) noexcept {
    const FloatLanes z = FloatLanes::load(memory);
    const FloatLanes feedback = z * FloatLanes::load(denominator);
    const FloatLanes forward = z * FloatLanes::load(numerator);
    const FloatLanes w = x - feedback - feedback.upper();
    FloatLanes::lowers(w, z).store(memory);
    return w * FloatLanes::load(direct) + forward + forward.upper();
  }

  // The same where a channel may be off: its sample passes, its memory stays.
  FloatLanes processMasked(FloatLanes x) noexcept {
    const FloatLanes before = FloatLanes::load(memory), on = FloatLanes::load(mask);
    const FloatLanes y = process(x);
    FloatLanes::select(on, FloatLanes::load(memory), before).store(memory);
    return FloatLanes::select(on, y, x);
  }
};

using BandLanesArray = std::array<BandLanes, equalizerBands>;

}  // namespace vellumic
