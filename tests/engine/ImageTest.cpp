// What a build makes of raw values, streams and modes.
#include <gtest/gtest.h>

#include <limits>

#include "tests/engine/EngineRig.h"

namespace vellumic {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

struct RateCase {
  float rate;
  bool known;
  float fadeLength;
};
class RateTest : public testing::TestWithParam<RateCase> {};

TEST_P(RateTest, UnknownRatesSwitchTheEffectOffAndTheRestIsBuilt) {
  EngineRig rig(equalizerGain(0.5F), {.format = {.sampleRate = GetParam().rate}});
  EXPECT_EQ(rig.image()[Entry::effectEnable], GetParam().known ? 1.0F : 0.0F);
  EXPECT_EQ(rig.image()[Entry::fadeLength], GetParam().fadeLength);
  EXPECT_EQ(rig.image()[Entry::equalizerMaster], 1.0F);
  EXPECT_EQ(rig.call(constant(4, 1.0F)), constant(4, GetParam().known ? 0.5F : 1.0F));
}
INSTANTIATE_TEST_SUITE_P(
    Rates, RateTest,
    testing::Values(RateCase{16000.0F, true, 3333.0F}, RateCase{32000.0F, false, 6667.0F},
                    RateCase{44100.0F, true, 9188.0F}, RateCase{48000.0F, true, 10000.0F},
                    RateCase{192000.0F, true, 40000.0F}, RateCase{0.0F, false, 0.0F}));

TEST(Trims, BadGainsFallToOne) {
  for (const auto& [stored, used] : {std::pair{0.0F, 1.0F},
                                     {0.1F, 0.1F},
                                     {10.0F, 10.0F},
                                     {10.5F, 1.0F},
                                     {-1.0F, 1.0F},
                                     {nan, 1.0F}}) {
    EngineRig rig(factoryWith({{Raw::inputGain, stored}, {Raw::outputGain, stored}}),
                  {.mode = EffectMode::array});
    EXPECT_EQ(rig.image()[Entry::inputGain], used) << stored;
    EXPECT_EQ(rig.image()[Entry::outputGain], used) << stored;
  }
}

struct CategoryCase {
  ProcessingMode mode;
  float keepInDefaultMode;
  Category category;
  std::uint32_t flags;
};
class CategoryTest : public testing::TestWithParam<CategoryCase> {};

constexpr std::uint32_t everyArrayEffect =
    effect_flags::echoCancellation | effect_flags::beamforming | effect_flags::noiseSuppression |
    effect_flags::automaticGain;

TEST_P(CategoryTest, TheModeDecidesWhichEffectsAreReported) {
  EngineRig rig(factoryWith({{Raw::keepInDefaultMode, GetParam().keepInDefaultMode}}),
                {.mode = EffectMode::array, .processingMode = GetParam().mode});
  EXPECT_EQ(rig.image()[Entry::category], static_cast<float>(GetParam().category));
  EXPECT_EQ(rig.core->sets.effectFlags(), GetParam().flags);
  EXPECT_EQ(rig.core->sets.currentMask()[Entry::beamformingEffect], GetParam().flags != 0 ? 1 : 0);
}
INSTANTIATE_TEST_SUITE_P(
    Modes, CategoryTest,
    testing::Values(CategoryCase{ProcessingMode::standard, 1.0F, Category::other, everyArrayEffect},
                    CategoryCase{ProcessingMode::standard, 0.0F, Category::other, 0},
                    CategoryCase{ProcessingMode::raw, 1.0F, Category::raw, 0},
                    CategoryCase{ProcessingMode::speech, 0.0F, Category::speech, everyArrayEffect},
                    CategoryCase{ProcessingMode::media, 1.0F, Category::media, everyArrayEffect},
                    CategoryCase{ProcessingMode::notification, 0.0F, Category::other, 0}));

TEST(Mirror, AFlatEqualiserClearsItsMasterButStaysInForce) {
  EngineRig rig(equalizerGain(1.0F));
  EXPECT_EQ(rig.image()[Entry::equalizerMaster], 0.0F);
  EXPECT_EQ(rig.image()[Entry::equalizerCoefficientsFirst], 0.0F);
  EXPECT_TRUE(rig.core->engine.equalizer.active());

  rig.reload(equalizerGain(0.25F));
  rig.call(constant(2, 0.0F));
  EXPECT_EQ(rig.image()[Entry::equalizerMaster], 1.0F);
  EXPECT_EQ(rig.image().at(index(Entry::equalizerCoefficientsSecond) + 2), 0.25F);  // b0
  EXPECT_EQ(rig.core->sets.effectFlags(), 0U);  // never reported as an effect
}

TEST(Mirror, WritesTheBandsThatAreOnAndKeepsTheOthers) {
  // Not on, but not 0 either: the mirror is written all the same.
  RawValues values = factoryWith({{Raw::equalizerMaster, 0.5F}});
  for (const int band : {1, 2}) values[index(bandSlot(0, band, BandField::type))] = 2.0F;
  values[index(bandSlot(0, 1, BandField::enable))] = 1.0F;
  values[index(bandSlot(0, 2, BandField::enable))] = 0.5F;
  EngineRig rig(values);
  const BiquadCoefficients low = *designBiquad(2, 1000.0F, 0.7F, 1.0F, 48000.0F);
  const std::vector<float> expected{low.a1, low.a2, low.b0, low.b1, low.b2, 0, 0, 0, 0, 0};
  const auto mirrored = [&] {
    const auto first = rig.image().span().subspan(index(Entry::equalizerCoefficientsFirst) + 5, 10);
    return std::vector<float>(first.begin(), first.end());
  };
  EXPECT_EQ(mirrored(), expected);
  values[index(bandSlot(0, 1, BandField::enable))] = 0.0F;
  rig.reload(values);
  rig.call(constant(2, 0.0F));
  EXPECT_EQ(rig.image().at(index(Entry::equalizerEnableFirst) + 1), 0.0F);
  EXPECT_EQ(rig.image().at(index(Entry::equalizerEnableFirst) + 2), 0.5F);
  EXPECT_EQ(mirrored(), expected);
}

struct MicrophoneCase {
  EffectMode mode;
  ProcessingMode processingMode;
  std::uint32_t channels;
  int microphones;
};
class MicrophoneTest : public testing::TestWithParam<MicrophoneCase> {};

TEST_P(MicrophoneTest, AStreamOfSpeechOrNoCategorySizesThePipeline) {
  const auto& [mode, processingMode, channels, microphones] = GetParam();
  EngineRig rig(factorySettings(),
                {.mode = mode,
                 .processingMode = processingMode,
                 .format = {.inputChannels = channels, .outputChannels = channels}});
  EXPECT_EQ(rig.core->engine.pipeline.micCount(), microphones);
}
constexpr auto array = EffectMode::array, fourChannel = EffectMode::arrayFourChannel;
INSTANTIATE_TEST_SUITE_P(
    Streams, MicrophoneTest,
    testing::Values(MicrophoneCase{array, ProcessingMode::standard, 8, 8},
                    MicrophoneCase{array, ProcessingMode::speech, 4, 4},
                    MicrophoneCase{array, ProcessingMode::notification, 4, 4},
                    MicrophoneCase{array, ProcessingMode::standard, 1, 2},
                    MicrophoneCase{array, ProcessingMode::raw, 8, 2},
                    MicrophoneCase{array, ProcessingMode::media, 8, 2},
                    MicrophoneCase{array, ProcessingMode::communications, 4, 2},
                    MicrophoneCase{fourChannel, ProcessingMode::standard, 4, 2},
                    MicrophoneCase{fourChannel, ProcessingMode::speech, 8, 6},
                    MicrophoneCase{fourChannel, ProcessingMode::speech, 1, 2}));

TEST(FadeRequest, IsUsedUpByOneBuild) {
  EngineRig rig(factorySettings());
  rig.reload(byFade(factorySettings()));
  EXPECT_EQ(rig.core->sets.pendingMask()[Entry::fadeRequested], 1);
  EXPECT_EQ(rig.core->sets.rawParameters()[index(Raw::fadeRequest)], 0.0F);
}

TEST(Blocks, LocksReuseTheirBlocksAndReleaseReturnsAll) {
  EngineRig rig(factorySettings());
  const std::size_t used = rig.core->arena.used();
  EXPECT_EQ(used, 2 * (5460 + 8576 + 2144) + 3568U + 624 + (8576 + 3568 + 624 + 2144));
  for (int i = 0; i < 50; ++i) rig.lock({.sampleRate = 44100.0F});
  EXPECT_EQ(rig.core->arena.used(), used);
  rig.core->sets.release();
  rig.core->sets.release();
  EXPECT_EQ(rig.core->arena.liveCount(), 0U);
}

TEST(Blocks, AFullArenaRefusesAndTakesNothing) {
  auto core = std::make_unique<CaptureCore>(LoopbackOpener{});
  void* rest = core->arena.allocate(Arena::capacity - 20000);
  EXPECT_FALSE(core->sets.allocate());
  EXPECT_EQ(core->arena.liveCount(), 1U);
  core->arena.release(rest);
  EXPECT_TRUE(core->sets.allocate());
}

struct MapCase {
  const char* name;
  std::uint32_t channels, mask;
  std::vector<int> slots;  // slots 0 to 11
};
class SlotMapTest : public testing::TestWithParam<MapCase> {};

TEST_P(SlotMapTest, SpeakersFindTheirSlots) {
  const SlotMap map = slotMapOf(GetParam().channels, GetParam().mask);
  EXPECT_EQ(std::vector<int>(map.begin(), map.begin() + slotCount), GetParam().slots);
}
INSTANTIATE_TEST_SUITE_P(
    Masks, SlotMapTest,
    testing::Values(MapCase{"mono", 1, 4, {0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
                    MapCase{"stereo", 2, 0, {0, 1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
                    MapCase{"none", 8, 0, {0, 1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
                    MapCase{"vendor", 4, 0x4000b, {0, 1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1}},
                    MapCase{"withoutSlots", 8, 0xff, {0, 1, 3, -1, 2, -1, -1, -1, 4, 5, -1, -1}},
                    MapCase{"maskTooWide", 4, 0x63f, {0, 1, 3, -1, 2, -1, -1, -1, -1, -1, -1, -1}}),
    [](const auto& test) { return test.param.name; });

TEST(SlotMap, EachLockStartsFromAbsentSlots) {
  EngineRig rig(factorySettings());
  rig.lock({.inputChannels = 1, .outputChannels = 1});
  EXPECT_EQ(rig.core->engine.inputIndex[1], -1);
  EXPECT_EQ(rig.core->engine.outputIndex[1], -1);
}

}  // namespace
}  // namespace vellumic
