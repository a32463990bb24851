#include "array/LevelStage.h"

#include <algorithm>
#include <cmath>

namespace vellumic {

namespace {

constexpr float meanOfSine = 0.63661975F;   // 2 / pi: mean magnitude of a sine of peak 1
constexpr float greatestEnvelope = 1e6F;    // the largest sample that the pipeline lets in
constexpr float greatestReduction = 1e12F;  // what that asks of settings in their sensible ranges

// NaN becomes 1.
float boundedReduction(float reduction) noexcept {
  return std::min(std::max(1.0F, reduction), greatestReduction);
}

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

  knee_ = level_ * meanOfSine;
  returnWithinReach();
}

// A reduction that no sound up to full scale, or as loud as the present one, asks of these settings
// was left by others. It would relax with its own slow times, floor and all, so it starts from what
// the present sound asks for.
void LevelStage::returnWithinReach() noexcept {
  constexpr float loudestKept = 10.0F;  // full scale at the largest input gain
  if (envelope > loudestKept) envelope = 0.0F;
  const float reach = boundedReduction(makeupGain_ * std::max(meanOfSine, envelope) / knee_);
  if (smoothedReduction <= reach && reductionFloor <= reach) return;
  smoothedReduction = reductionFloor = targetReduction();
}

inline float LevelStage::targetReduction() const noexcept {
  const float clippedEnvelope = std::max(envelope, 1e-10F);
  const float threshold = knee_ / makeupGain_;
  return clippedEnvelope <= threshold ? 1.0F
                                      : boundedReduction(makeupGain_ * clippedEnvelope / knee_);
}

inline float LevelStage::next(float input) noexcept {
  envelope += (1.0F - envelopeCoefficient_) * (std::abs(input) - envelope);
  envelope = std::min(std::max(0.0F, envelope), greatestEnvelope);

  const float target = targetReduction();
  const float coefficient = target > smoothedReduction ? attackCoefficient_ : releaseCoefficient_;
  smoothedReduction += (target - smoothedReduction) * (1.0F - coefficient);
  smoothedReduction = boundedReduction(smoothedReduction);

  float appliedReduction = smoothedReduction;
  if (floorEnabled_) {
    // Only an input well below what the reduction was made for lets the floor sink, slowly.
    if (smoothedReduction >= target * floorMargin_)
      reductionFloor = boundedReduction(reductionFloor + (1.0F - floorCoefficient_) *
                                                             (smoothedReduction - reductionFloor));
    else
      reductionFloor = std::max(reductionFloor, smoothedReduction);
    appliedReduction = std::max(smoothedReduction, reductionFloor);
  }
  return makeupGain_ / appliedReduction;
}

void LevelStage::gains(std::span<const float> input,
                       std::span<float> gains) noexcept VELLUMIC_NONBLOCKING {
  LevelStage stage = *this;  // a copy that lives in registers
  for (std::size_t i = 0; i < gains.size(); ++i) gains[i] = stage.gain = stage.next(input[i]);
  *this = stage;
}

}  // namespace vellumic
