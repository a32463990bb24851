// One stage of the level control: a feed-forward gain that amplifies quiet sound by up to
// makeupGain and brings louder sound to the peak level `level`, sample by sample.
//
// The level detector is the smoothed magnitude, compared with the mean magnitude 2/pi of a sine of
// peak `level`. A slow memory can hold the gain down in pauses, so that noise is not pulled up.
// Settings act as written, zeros too. Whatever they and the input are, the state stays in the
// ranges below; a state that the settings of an apply() cannot have led to starts over there.
// Thread: real-time only.
#pragma once

#include <span>

#include "parameters/StageSettings.h"
#include "platform/Realtime.h"

namespace vellumic {

class LevelStage {
 public:
  explicit LevelStage(const LevelStageSettings& settings) noexcept;

  void apply(const LevelStageSettings& settings) noexcept VELLUMIC_NONBLOCKING;
  // The gain for each of the samples; the output is gain times input. Equal sizes.
  void gains(std::span<const float> input, std::span<float> gains) noexcept VELLUMIC_NONBLOCKING;

  // State, linear.
  float envelope = 0.0F;           // smoothed input magnitude, 0 to 1e6
  float smoothedReduction = 1.0F;  // after attack and release, 1 to 1e12
  float reductionFloor = 1.0F;     // slow memory of the reduction, 1 to 1e12
  float gain = 0.0F;               // last gain applied

 private:
  inline float next(float input) noexcept;
  void returnWithinReach() noexcept;
  inline float targetReduction() const noexcept;  // what the envelope asks for

  // The times are meant for this rate and keep it, whatever the internal rate of the pipeline.
  static constexpr float sampleRate = 16000.0F;

  float makeupGain_ = 1.0F, level_ = 1.0F, floorMargin_ = 1.0F;
  float knee_ = 1.0F;  // mean magnitude of a sine of peak level_
  bool floorEnabled_ = false;
  float envelopeCoefficient_ = 0.0F, attackCoefficient_ = 0.0F, releaseCoefficient_ = 0.0F,
        floorCoefficient_ = 0.0F;
};

}  // namespace vellumic
