// Runs a block of frames through the bands of a channel pair along the diagonal.
//
// Frame by frame, the cascade is bound by the latency of ten sections in a row. Here band k works
// on frame n - s k while band 0 works on frame n, all bands side by side in registers. Nothing is
// delayed and the result equals the plain cascade bit by bit: at the ends of the block, where some
// bands have nothing to do, these keep their memories.
//
// The distance s is 2 in wide registers: then a step has two steps' time for its result, and only
// the recursion of w remains as a chain. Narrow ones have no registers left for that, and 1.
#pragma once

#include <cstddef>

#include "filters/BandLanes.h"
#include "platform/Realtime.h"

namespace vellumic {

struct EqualizerKernels {
  // From this many frames on the diagonal is worth its ends; the least that run() takes.
  std::size_t leastFrames;
  // Filters samples[0] and samples[1] of every `stride` floats in place. allOn: every band runs on
  // both channels.
  void (*run)(BandLanes& lanes, bool allOn, float* samples, std::size_t stride,
              std::size_t frames) noexcept VELLUMIC_NONBLOCKING;
};
const EqualizerKernels& equalizerKernels() noexcept VELLUMIC_NONBLOCKING;  // of the set in force

}  // namespace vellumic
