// Two sections that share one design, for two channels next to each other.
#pragma once

#include "filters/BiquadSection.h"

namespace vellumic {

struct BiquadSectionPair {
  BiquadSection first, second;

  // Sets and designs both alike; the memories stay.
  void set(BiquadType type, float frequency, float gain, float q, float sampleRate) noexcept {
    for (BiquadSection* section : {&first, &second})
      section->set(static_cast<int>(type), frequency, gain, q, sampleRate);
  }

  void process(float& firstSample, float& secondSample) noexcept VELLUMIC_NONBLOCKING {
    first.process(firstSample);
    second.process(secondSample);
  }
};

}  // namespace vellumic
