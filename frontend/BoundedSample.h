// Keeps samples from outside within what the stages can square and sum in float.
#pragma once

namespace vellumic {

// 120 dB above full scale: far beyond any microphone, while sums of the fourth powers of a block's
// spectrum still fit a float.
inline constexpr float largestSample = 1e6F;

// NaN fails the comparison too.
inline bool isSound(float sample) noexcept {
  return sample >= -largestSample && sample <= largestSample;
}

// A sample that is not finite, or absurdly large, enters as silence: one bad sample must not end
// up in the memory of a filter.
inline float soundSample(float sample) noexcept { return isSound(sample) ? sample : 0.0F; }

}  // namespace vellumic
