// Raw values, sound and broken, as the stages will see them.
#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "parameters/Catalogue.h"
#include "parameters/EqualizerSettings.h"
#include "parameters/PipelineSettings.h"

namespace vellumic {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

using Changes = std::initializer_list<std::pair<Raw, float>>;
RawValues with(Changes changes) {
  RawValues raw = factorySettings();
  for (const auto& [slot, value] : changes) raw[index(slot)] = value;
  return raw;
}

TEST(EqualizerSettings, FilterTypesAreTruncatedAndFallToFlatGain) {
  const std::pair<float, int> types[] = {{3.9F, 3},  {7.99F, 7}, {8, 0},     {-0.9F, 0},
                                         {1e30F, 0}, {nan, 0},   {-1e30F, 0}};
  for (const auto& [stored, type] : types) {
    const RawValues raw = with({{bandSlot(1, 9, BandField::type), stored}});
    EXPECT_EQ(EqualizerSettings::from(raw).bands[1][9].type, type) << stored;
  }
}

TEST(EqualizerSettings, BandsAreNeutralByUnityGainOrAnEnableOfZero) {
  const auto neutral = [](Changes changes) {
    return EqualizerSettings::from(with(changes)).allBandsNeutral();
  };
  const Raw enable = bandSlot(1, 4, BandField::enable), gain = bandSlot(1, 4, BandField::gain);
  EXPECT_TRUE(neutral({{gain, 2}}));
  EXPECT_TRUE(neutral({{enable, 1}}));
  EXPECT_FALSE(neutral({{enable, 0.5F}, {gain, 2}}));
  EXPECT_FALSE(neutral({{enable, nan}, {gain, nan}}));
}

PipelineSettings decoded(const RawValues& raw, StreamFacts stream = {.category = 2.0F}) {
  PipelineSettings settings;
  settings.update(raw, stream);
  return settings;
}

TEST(PipelineSettings, StartAsTheFactoryWantsThem) {
  PipelineSettings factory;
  EXPECT_FALSE(std::exchange(factory.level.levelControlEnabled, true)) << "on before parameters";
  EXPECT_TRUE(decoded(factorySettings()) == factory);
}

TEST(PipelineSettings, TheRunStateHasTheLastWord) {
  PipelineSettings expected = decoded(factorySettings());  // speech
  EXPECT_TRUE(decoded(with({{Raw::echoCancellation, 0}, {Raw::noisePostfilter, 0}})) == expected);
  EXPECT_TRUE(decoded(with({{Raw::keepInDefaultMode, 0}})) == expected);
  expected.delaySearchBlocks = 8;
  expected.echoBypass = true;
  const RawValues raw = with({{Raw::delaySearchBlocks, 8}});
  EXPECT_TRUE(decoded(raw, {.category = 2, .muted = true}) == expected);
  expected.runState = RunState::general;
  EXPECT_TRUE(decoded(raw, {.category = 4, .muted = true}) == expected);
  expected.enabled = expected.echoCancelEnabled = expected.beamformerEnabled = false;
  expected.postfilterEnabled = expected.level.levelControlEnabled = false;
  expected.runState = RunState::off;
  EXPECT_TRUE(decoded(raw, {.category = 1, .muted = true}) == expected);
}

TEST(PipelineSettings, BlockSizesThatTheTransformsCannotTakeKeepThePresentOne) {
  const std::pair<float, int> sizes[] = {{512, 512},   {961.7F, 960}, {128, 128},   {16384, 16384},
                                         {127, 1024},  {16386, 1024}, {896, 1024},  {1022, 1024},
                                         {-512, 1024}, {nan, 1024},   {1e30F, 1024}};
  for (const auto& [stored, size] : sizes)
    EXPECT_EQ(decoded(with({{Raw::blockSize, stored}})).blockSize, size) << stored;
}

TEST(PipelineSettings, RatesOutsideTheirRangeFallToTheDefaults) {
  const std::pair<float, int> rates[] = {{1, 1},    {192000, 192000}, {8000.9F, 8000},
                                         {0.9F, 0}, {192001, 0},      {nan, 0},
                                         {-1, 0},   {infinity, 0}};
  for (const auto& [stored, rate] : rates) {
    const auto settings =
        decoded(with({{Raw::internalRate, stored}}), {.category = 2, .deviceRate = stored});
    EXPECT_EQ(settings.internalRate, rate == 0 ? 16000 : rate) << stored;
    EXPECT_EQ(settings.deviceRate, rate == 0 ? 48000 : rate) << stored;
  }
}

TEST(PipelineSettings, EveryTuningSlotReachesItsField) {
  RawValues raw = factorySettings();
  for (std::size_t slot = 1287; slot <= 1356; ++slot) raw[slot] = static_cast<float>(slot);
  const auto s = decoded(raw);
  const auto& [gain, noise, echo] = std::tie(s.spectralGain, s.noiseEstimator, s.echo);
  const LevelStageSettings &level = s.level.levelStage, &limiter = s.level.limiterStage;
  // By the first slot of a run of neighbours.
  const std::pair<int, std::vector<double>> runs[] = {
      {1287, {gain.snrPole, gain.offset1, gain.exponent1, gain.floor1}},
      {1291, {gain.offset2, gain.exponent2, gain.floor2}},
      {1295, {noise.powerPole, noise.minimumBias, noise.zeta0, noise.gamma0, noise.gamma1}},
      {1300, {noise.noisePole, noise.snrPole, noise.snrFloor, 1.0 * noise.windowFrames}},
      {1306, {echo.powerSmoothing, echo.filterPole, echo.overSubtraction, echo.couplingStep}},
      {1310, {echo.referenceSmoothing, echo.levelSmoothing, echo.suppressionFloor}},
      {1313, {echo.crossFactor, echo.reservedFloor, 1.0 * echo.warmupBlocks, echo.updateThreshold}},
      {1328, {level.makeupGain, level.level, level.envelopeTime, level.attackTime}},
      {1332, {level.releaseTime}},
      {1334, {level.floorTime, level.floorMargin}},
      {1337, {limiter.makeupGain, limiter.level, limiter.envelopeTime, limiter.attackTime}},
      {1341, {limiter.releaseTime}},
      {1343, {limiter.floorTime, limiter.floorMargin}},
      {1346, {s.level.lookAheadTime}},
      {1355, {s.beamformer.covarianceTimeConstant, s.beamformer.thresholdScale}}};
  for (const auto& [first, fields] : runs)
    for (std::size_t i = 0; i < fields.size(); ++i)
      EXPECT_EQ(fields[i], static_cast<double>(first) + static_cast<double>(i));
}

TEST(PipelineSettings, NumbersKeepTheirRange) {
  const struct {
    float stored;
    int window, halfWidth, passes, warmup;
    float covarianceTime, thresholdScale, level;
  } cases[] = {{0, 200, 0, 0, 0, 5, 1, 0},
               {1, 1, 1, 1, 1, 1, 1, 1},
               {65, 65, 1, 65, 65, 65, 65, 65},
               {2000, 2000, 1, 100, 2000, 2000, 2000, 2000},
               {2001, 200, 1, 100, 2001, 2001, 2001, 2001},
               {0x1p31F, 200, 1, 100, 100000, 0x1p31F, 0x1p31F, 0x1p31F},
               {-1e30F, 200, 1, 0, 0, -1e30F, -1e30F, -1e30F},
               {infinity, 200, 1, 100, 100000, 5, 1, 0.15848932F},
               {nan, 200, 1, 10, 10, 5, 1, 0.15848932F}};
  for (const auto& row : cases) {
    RawValues raw = factorySettings();
    for (std::size_t slot = 1287; slot <= 1356; ++slot) raw[slot] = row.stored;
    const auto s = decoded(raw);
    EXPECT_EQ(std::tuple(s.noiseEstimator.windowFrames, s.noiseEstimator.smoothingHalfWidth,
                         s.bandTestPasses, s.echo.warmupBlocks),
              std::tuple(row.window, row.halfWidth, row.passes, row.warmup))
        << row.stored;
    EXPECT_EQ(std::tuple(s.beamformer.covarianceTimeConstant, s.beamformer.thresholdScale,
                         s.level.levelStage.level),
              std::tuple(row.covarianceTime, row.thresholdScale, row.level))
        << row.stored;
  }
}

}  // namespace
}  // namespace vellumic
