// The high-pass in front of the array stages, one section per microphone.
#pragma once

#include <span>

#include "filters/BiquadSection.h"
#include "frontend/SampleRing.h"
#include "platform/Realtime.h"

namespace vellumic {

inline constexpr float micHighPassFrequency = 150.0F;  // Hz

// `sampleRate`: the internal rate, Hz. Off the audio thread.
inline BiquadCoefficients designMicHighPass(int sampleRate) noexcept {
  return designBiquad(static_cast<int>(BiquadType::HighPass), micHighPassFrequency, 0.7F, 1.0F,
                      static_cast<float>(sampleRate))
      .value_or(BiquadCoefficients{});
}

// Filters `count` samples of each channel in place, from place `first` on; all sections have one
// design. Far below an internal rate of 300 Hz that is unstable: a section whose output is not
// sound starts over. Real-time.
void runHighPass(std::span<BiquadSection> sections, ChannelArrays& samples, int first,
                 int count) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
