// Runs a block of frames through the bands of a channel pair along the diagonal.
//
// Frame by frame, the cascade is bound by the latency of ten sections in a row. Here band k works
// on frame n - k while band 0 works on frame n: ten independent steps, two bands of two channels
// in one register. The triangles at the ends of the block are filled in frame by frame, so that
// the result equals the plain cascade bit by bit and nothing is delayed.
#pragma once

#include <cstddef>

#include "filters/BandLanes.h"
#include "platform/Realtime.h"

namespace vellumic {

// From this many frames on the diagonal is worth its ends.
inline constexpr std::size_t diagonalFrames = 3 * equalizerBands;

// Filters samples[0] and samples[1] of every `stride` floats in place. allOn: every band runs on
// both channels. frames >= equalizerBands.
void runDiagonal(BandLanesArray& bands, bool allOn, float* samples, std::size_t stride,
                 std::size_t frames) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
