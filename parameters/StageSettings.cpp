#include "parameters/StageSettings.h"

#include <array>

#include "parameters/Binding.h"

namespace vellumic {
namespace {

using Echo = EchoCancellerSettings;
constexpr auto echoBindings = std::to_array<Binding<Echo>>({
    {Raw::echoPowerSmoothing, &Echo::powerSmoothing},
    {Raw::echoFilterPole, &Echo::filterPole},
    {Raw::echoOverSubtraction, &Echo::overSubtraction},
    {Raw::echoCouplingStep, &Echo::couplingStep},
    {Raw::echoReferenceSmoothing, &Echo::referenceSmoothing},
    {Raw::echoLevelSmoothing, &Echo::levelSmoothing},
    {Raw::echoSuppressionFloor, &Echo::suppressionFloor},
    {Raw::echoCrossFactor, &Echo::crossFactor},
    {Raw::echoReservedFloor, &Echo::reservedFloor},
    {Raw::echoUpdateThreshold, &Echo::updateThreshold},
    {Raw::echoWarmupBlocks, IntegerField<Echo>{&Echo::warmupBlocks, 0, 100000, OutOfRange::clamp}},
});

using Noise = NoiseEstimatorSettings;
constexpr auto noiseBindings = std::to_array<Binding<Noise>>({
    {Raw::noiseSmoothingHalfWidth,
     IntegerField<Noise>{&Noise::smoothingHalfWidth, 0, 64, OutOfRange::keep}},
    {Raw::noisePowerPole, &Noise::powerPole},
    {Raw::noiseMinimumBias, &Noise::minimumBias},
    {Raw::noiseZeta0, &Noise::zeta0},
    {Raw::noiseGamma0, &Noise::gamma0},
    {Raw::noiseGamma1, &Noise::gamma1},
    {Raw::noiseNoisePole, &Noise::noisePole},
    {Raw::noiseSnrPole, &Noise::snrPole},
    {Raw::noiseSnrFloor, &Noise::snrFloor},
    {Raw::noiseWindowFrames, IntegerField<Noise>{&Noise::windowFrames, 1, 2000, OutOfRange::keep}},
});

using Gain = SpectralGainSettings;
constexpr auto gainBindings = std::to_array<Binding<Gain>>({
    {Raw::gainSnrPole, &Gain::snrPole},
    {Raw::gainOffset1, &Gain::offset1},
    {Raw::gainExponent1, &Gain::exponent1},
    {Raw::gainFloor1, &Gain::floor1},
    {Raw::gainOffset2, &Gain::offset2},
    {Raw::gainExponent2, &Gain::exponent2},
    {Raw::gainFloor2, &Gain::floor2},
});

using Beam = BeamformerSettings;
constexpr auto beamformerBindings = std::to_array<Binding<Beam>>({
    {Raw::covarianceTime, &Beam::covarianceTimeConstant},
    {Raw::thresholdScale, &Beam::thresholdScale},
});

using Stage = LevelStageSettings;
constexpr auto levelStageBindings = std::to_array<Binding<Stage>>({
    {Raw::levelMakeupGain, &Stage::makeupGain},
    {Raw::levelLevel, &Stage::level},
    {Raw::levelEnvelopeTime, &Stage::envelopeTime},
    {Raw::levelAttackTime, &Stage::attackTime},
    {Raw::levelReleaseTime, &Stage::releaseTime},
    {Raw::levelFloorEnabled, &Stage::floorEnabled},
    {Raw::levelFloorTime, &Stage::floorTime},
    {Raw::levelFloorMargin, &Stage::floorMargin},
});
constexpr auto limiterStageBindings = std::to_array<Binding<Stage>>({
    {Raw::limiterMakeupGain, &Stage::makeupGain},
    {Raw::limiterLevel, &Stage::level},
    {Raw::limiterEnvelopeTime, &Stage::envelopeTime},
    {Raw::limiterAttackTime, &Stage::attackTime},
    {Raw::limiterReleaseTime, &Stage::releaseTime},
    {Raw::limiterFloorEnabled, &Stage::floorEnabled},
    {Raw::limiterFloorTime, &Stage::floorTime},
    {Raw::limiterFloorMargin, &Stage::floorMargin},
});
using Level = LevelControlSettings;
constexpr auto levelBindings = std::to_array<Binding<Level>>({
    {Raw::levelControl, &Level::levelControlEnabled},
    {Raw::limiter, &Level::limiterEnabled},
    {Raw::lookAhead, &Level::lookAheadEnabled},
    {Raw::lookAheadTime, &Level::lookAheadTime},
});

}  // namespace

void EchoCancellerSettings::update(RawView raw) noexcept { decode<Echo>(raw, echoBindings, *this); }
void NoiseEstimatorSettings::update(RawView raw) noexcept {
  decode<Noise>(raw, noiseBindings, *this);
}
void SpectralGainSettings::update(RawView raw) noexcept { decode<Gain>(raw, gainBindings, *this); }

void BeamformerSettings::update(RawView raw) noexcept {
  decode<Beam>(raw, beamformerBindings, *this);
  // A stored zero means the default, so that a setting written before these slots existed works.
  if (covarianceTimeConstant == 0.0F) covarianceTimeConstant = factoryValue(Raw::covarianceTime);
  if (thresholdScale == 0.0F) thresholdScale = factoryValue(Raw::thresholdScale);
}

void LevelControlSettings::update(RawView raw) noexcept {
  decode<Stage>(raw, levelStageBindings, levelStage);
  decode<Stage>(raw, limiterStageBindings, limiterStage);
  decode<Level>(raw, levelBindings, *this);
}

}  // namespace vellumic
