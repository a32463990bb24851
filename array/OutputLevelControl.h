// Last stage of the array chain, mono: a slow gain stage with a ceiling, then a
// fast limiting stage whose gain can act on the signal lookAheadLength samples earlier.
//
// State outlives apply(); what is no longer finite starts over there.
// Thread: real-time only. No allocation: the delay line is part of the object (77 KB).
#pragma once

#include <array>
#include <span>

#include "array/LevelStage.h"
#include "parameters/StageSettings.h"
#include "platform/Realtime.h"

namespace vellumic {

class OutputLevelControl {
 public:
  OutputLevelControl() noexcept;  // factory values, off

  void apply(const LevelControlSettings& settings) noexcept VELLUMIC_NONBLOCKING;

  // In place, a run of any length: the same bits however the samples are cut into runs.
  void process(std::span<float> samples) noexcept VELLUMIC_NONBLOCKING;

  // A run of one.
  void process(float input, float& output) noexcept VELLUMIC_NONBLOCKING {
    output = input;
    process({&output, 1});
  }

  bool levelControlEnabled = false;  // false: a pass-through
  int lookAheadLength = 64;          // samples, 0 to 19200; 0 delays by one sample, as 1 does
  LevelStage levelStage, limiterStage;

 private:
  void processPiece(std::span<float> samples) noexcept;
  void meetEarlierSamples(std::span<float> samples, std::span<const float> gains) noexcept;

  static constexpr int longestLookAhead = 19200;
  static constexpr float sampleRate = 16000.0F;  // as the stages' times

  bool limiterEnabled_ = true, lookAheadEnabled_ = true;
  std::array<float, longestLookAhead> delayLine_{};
  int lookAheadIndex_ = 0;
};

}  // namespace vellumic
