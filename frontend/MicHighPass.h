// The high-pass in front of the array stages, one section per microphone. Off the audio thread.
#pragma once

#include "filters/BiquadSection.h"

namespace vellumic {

inline constexpr float micHighPassFrequency = 150.0F;  // Hz

// `sampleRate`: the internal rate, Hz.
inline BiquadCoefficients designMicHighPass(int sampleRate) noexcept {
  return designBiquad(static_cast<int>(BiquadType::HighPass), micHighPassFrequency, 0.7F, 1.0F,
                      static_cast<float>(sampleRate))
      .value_or(BiquadCoefficients{});
}

}  // namespace vellumic
