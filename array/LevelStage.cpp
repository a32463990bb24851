#include "array/LevelStage.h"

#include <algorithm>
#include <cmath>

namespace vellumic {

namespace {

float poleOf(float seconds, float sampleRate) noexcept {
  return std::exp(-1.0F / (seconds * sampleRate));
}

}  // namespace

LevelStage::LevelStage(const LevelStageSettings& settings) noexcept { apply(settings); }

void LevelStage::apply(const LevelStageSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  makeupGain_ = settings.makeupGain;
  level_ = settings.level;
  floorEnabled_ = settings.floorEnabled;
  floorMargin_ = settings.floorMargin;
  envelopeCoefficient_ = poleOf(settings.envelopeTime, sampleRate);
  attackCoefficient_ = poleOf(settings.attackTime, sampleRate);
  releaseCoefficient_ = poleOf(settings.releaseTime, sampleRate);
  floorCoefficient_ = poleOf(settings.floorTime, sampleRate);

  if (!std::isfinite(envelope)) envelope = 0.0F;
  if (!std::isfinite(smoothedReduction)) smoothedReduction = 1.0F;
  if (!std::isfinite(reductionFloor)) reductionFloor = 1.0F;
}

float LevelStage::process(float input) noexcept VELLUMIC_NONBLOCKING {
  envelope += (1.0F - envelopeCoefficient_) * (std::abs(input) - envelope);
  const float clippedEnvelope = std::max(envelope, 1e-10F);

  const float knee = level_ * 0.63661975F;  // 2 / pi: mean magnitude of a sine of peak 1
  const float threshold = knee / makeupGain_;
  const float targetReduction =
      clippedEnvelope <= threshold ? 1.0F : makeupGain_ * clippedEnvelope / knee;

  const float coefficient =
      targetReduction > smoothedReduction ? attackCoefficient_ : releaseCoefficient_;
  smoothedReduction += (targetReduction - smoothedReduction) * (1.0F - coefficient);

  float appliedReduction = smoothedReduction;
  if (floorEnabled_) {
    // Only an input well below what the reduction was made for lets the floor sink, slowly.
    if (smoothedReduction >= targetReduction * floorMargin_)
      reductionFloor += (1.0F - floorCoefficient_) * (smoothedReduction - reductionFloor);
    else
      reductionFloor = std::max(reductionFloor, smoothedReduction);
    appliedReduction = std::max(smoothedReduction, reductionFloor);
  }
  gain = makeupGain_ / appliedReduction;
  return gain * input;
}

}  // namespace vellumic
