// Settings of the array pipeline's stages, decoded from the raw values. Every default is the
// factory value. Each stage takes only its own struct.
//
// update(raw) writes every field from its slot; guards as in Binding.h, ranges beside the fields.
#pragma once

#include "parameters/Raw.h"

namespace vellumic {

struct EchoCancellerSettings {
  float powerSmoothing = factoryValue(Raw::echoPowerSmoothing);  // pole per block
  float filterPole = factoryValue(Raw::echoFilterPole);          // pole per block
  float overSubtraction = factoryValue(Raw::echoOverSubtraction);
  float couplingStep = factoryValue(Raw::echoCouplingStep);
  float referenceSmoothing = factoryValue(Raw::echoReferenceSmoothing);  // pole per half block
  float levelSmoothing = factoryValue(Raw::echoLevelSmoothing);          // pole per half block
  float suppressionFloor = factoryValue(Raw::echoSuppressionFloor);      // linear gain
  float crossFactor = factoryValue(Raw::echoCrossFactor);
  float reservedFloor = factoryValue(Raw::echoReservedFloor);  // accepted, no effect
  float updateThreshold = factoryValue(Raw::echoUpdateThreshold);
  int warmupBlocks = static_cast<int>(factoryValue(Raw::echoWarmupBlocks));  // 0 to 100000

  void update(RawView raw) noexcept;
  bool operator==(const EchoCancellerSettings&) const = default;
};

struct NoiseEstimatorSettings {
  int smoothingHalfWidth = static_cast<int>(factoryValue(Raw::noiseSmoothingHalfWidth));  // 0 to 64
  float powerPole = factoryValue(Raw::noisePowerPole);
  float minimumBias = factoryValue(Raw::noiseMinimumBias);
  float zeta0 = factoryValue(Raw::noiseZeta0);
  float gamma0 = factoryValue(Raw::noiseGamma0);
  float gamma1 = factoryValue(Raw::noiseGamma1);
  float noisePole = factoryValue(Raw::noiseNoisePole);
  float snrPole = factoryValue(Raw::noiseSnrPole);
  float snrFloor = factoryValue(Raw::noiseSnrFloor);
  int windowFrames = static_cast<int>(factoryValue(Raw::noiseWindowFrames));  // 1 to 2000

  void update(RawView raw) noexcept;
  bool operator==(const NoiseEstimatorSettings&) const = default;
};

struct SpectralGainSettings {
  float snrPole = factoryValue(Raw::gainSnrPole);
  float offset1 = factoryValue(Raw::gainOffset1);
  float exponent1 = factoryValue(Raw::gainExponent1);
  float floor1 = factoryValue(Raw::gainFloor1);
  float offset2 = factoryValue(Raw::gainOffset2);
  float exponent2 = factoryValue(Raw::gainExponent2);
  float floor2 = factoryValue(Raw::gainFloor2);

  void update(RawView raw) noexcept;
  bool operator==(const SpectralGainSettings&) const = default;
};

struct BeamformerSettings {
  float covarianceTimeConstant = factoryValue(Raw::covarianceTime);  // s; a stored 0 means 5
  float thresholdScale = factoryValue(Raw::thresholdScale);          // a stored 0 means 1

  void update(RawView raw) noexcept;
  bool operator==(const BeamformerSettings&) const = default;
};

struct LevelStageSettings {
  float makeupGain = 1.0F;                                           // linear
  float level = 1.0F;                                                // linear peak
  float envelopeTime = 0.0F, attackTime = 0.0F, releaseTime = 0.0F;  // s
  bool floorEnabled = false;
  float floorTime = 0.0F;    // s
  float floorMargin = 1.0F;  // linear

  bool operator==(const LevelStageSettings&) const = default;
};

// Settings act as written, also zeros; only values that are not finite keep the one in force.
struct LevelControlSettings {
  bool levelControlEnabled = false;  // the object is off until parameters come
  LevelStageSettings levelStage{.makeupGain = factoryValue(Raw::levelMakeupGain),
                                .level = factoryValue(Raw::levelLevel),
                                .envelopeTime = factoryValue(Raw::levelEnvelopeTime),
                                .attackTime = factoryValue(Raw::levelAttackTime),
                                .releaseTime = factoryValue(Raw::levelReleaseTime),
                                .floorEnabled = true,
                                .floorTime = factoryValue(Raw::levelFloorTime),
                                .floorMargin = factoryValue(Raw::levelFloorMargin)};
  bool limiterEnabled = true;
  LevelStageSettings limiterStage{.makeupGain = factoryValue(Raw::limiterMakeupGain),
                                  .level = factoryValue(Raw::limiterLevel),
                                  .envelopeTime = factoryValue(Raw::limiterEnvelopeTime),
                                  .attackTime = factoryValue(Raw::limiterAttackTime),
                                  .releaseTime = factoryValue(Raw::limiterReleaseTime),
                                  .floorEnabled = false,
                                  .floorTime = factoryValue(Raw::limiterFloorTime),
                                  .floorMargin = factoryValue(Raw::limiterFloorMargin)};
  bool lookAheadEnabled = true;
  float lookAheadTime = factoryValue(Raw::lookAheadTime);  // s; at most 19200 samples

  void update(RawView raw) noexcept;
  bool operator==(const LevelControlSettings&) const = default;
};

}  // namespace vellumic
