// What a build makes of raw values, streams and modes, and the blocks that hold it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

#include "frontend/BlockPart.h"
#include "tests/engine/EngineRig.h"

namespace vellumic {
namespace {

// What an image holds, by position; everything else is 0. The mask says which entries are not.
using Facts = std::map<std::size_t, float>;
void expectImage(const ParameterSets& sets, const Facts& facts) {
  for (std::size_t i = 0; i < imageSize; ++i) {
    const auto fact = facts.find(i);
    const float expected = fact == facts.end() ? 0.0F : fact->second;
    EXPECT_EQ(sets.currentImage().at(i), expected) << i;
    EXPECT_EQ(sets.currentMask().at(i), expected != 0.0F) << i;
  }
}

// What a stream before may have left where nothing writes, and what a lock makes of it.
void relockOverLeftovers(EngineRig& rig, const StreamFormat& format) {
  const ImageView image = rig.core->sets.pendingImage();
  for (const auto& [first, last] :
       {std::pair{9, 18}, {28, 29}, {631, 639}, {1648, 1648}, {2140, 2143}})
    for (int i = first; i <= last; ++i) image.at(static_cast<std::size_t>(i)) = 5.0F;
  std::ranges::fill(rig.core->sets.fadeState().span(), 3.0F);
  std::fill_n(rig.core->engine.nextFadeState, fadeBlockSize, 3.0F);
  rig.lock(format);
  EXPECT_EQ(std::count(rig.core->engine.nextFadeState,
                       rig.core->engine.nextFadeState + fadeBlockSize, 0.0F),
            static_cast<std::ptrdiff_t>(fadeBlockSize));
  for (std::size_t i = 0; i < fadeBlockSize; ++i) {
    const bool cleared = i == 311 || (i >= 316 && i <= 319) || i >= 852;
    EXPECT_EQ(rig.core->sets.fadeState().at(i), cleared ? 0.0F : 3.0F) << i;
  }
  EXPECT_EQ(*static_cast<const char*>(*rig.core->context.reservedSlot), 0);  // behind the mask
}

// Of every image at 48 kHz, and what differs.
Facts image(const Facts& own) {
  Facts facts{{0, 1},       {8, 48000}, {19, 2},    {20, 2},   {22, 1},
              {671, 10000}, {2132, 1},  {2137, 10}, {2138, 1}, {2139, 1}};
  for (const auto& [at, value] : own) facts[at] = value;
  return facts;
}
const Facts arrayEffects{{2140, 1}, {2141, 1}, {2142, 1}, {2143, 1}};

TEST(Image, OfTheArray) {
  const RawValues raw =
      factoryWith({{Raw::imageCopy, 7.0F}, {Raw::inputGain, 2.0F}, {Raw::outputGain, 0.5F}});
  EngineRig rig(raw, {.mode = EffectMode::array});
  Facts facts = image({{7, 9}, {25, 7}, {2138, 2}, {2139, 0.5F}});
  facts.insert(arrayEffects.begin(), arrayEffects.end());
  expectImage(rig.core->sets, facts);
  rig.core->sets.setMasterVolume(0.75F);
  EXPECT_EQ(rig.core->sets.currentImage().at(22), 0.75F);
  EXPECT_EQ(rig.core->sets.pendingImage().at(22), 0.75F);
  rig.core->sets.setVolumes({.master = 0.5F, .first = 0.25F, .second = 0.125F});
  relockOverLeftovers(rig, {.sampleRate = 44100.0F, .inputChannels = 8, .outputChannels = 4});
  for (const auto& [at, value] :
       Facts{{8, 44100}, {19, 8}, {20, 4}, {22, 0.5F}, {23, 0.25F}, {24, 0.125F}, {671, 9188}})
    facts[at] = value;
  rig.core->sets.pendingImage().at(639) = 5.0F;
  rig.reload(raw);
  rig.call({});
  expectImage(rig.core->sets, facts);
}

TEST(Image, OfTheKeywordDetector) {
  EngineRig rig(factorySettings(),
                {.mode = EffectMode::arrayFourChannel, .processingMode = ProcessingMode::speech});
  relockOverLeftovers(rig, {.sampleRate = 16000.0F, .inputChannels = 4, .outputChannels = 4});
  Facts facts = image({{5, 2}, {7, 12}, {8, 16000}, {19, 4}, {20, 4}, {671, 3333}});
  facts.insert(arrayEffects.begin(), arrayEffects.end());
  expectImage(rig.core->sets, facts);
}

// Bands that are on are written; those that went off keep their coefficients; a half-on master is
// no reason to leave anything out.
TEST(Image, OfTheEqualizer) {
  RawValues raw = equalizerGain(0.5F);
  raw[index(Raw::equalizerMaster)] = 0.5F;
  raw[index(bandSlot(1, 3, BandField::enable))] = 1.0F;
  raw[index(bandSlot(1, 3, BandField::type))] = 2.0F;
  raw[index(bandSlot(0, 9, BandField::enable))] = 0.5F;
  EngineRig rig(raw);
  relockOverLeftovers(rig, {});
  const BiquadCoefficients low = *designBiquad(2, 1000.0F, 0.7F, 1.0F, 48000.0F);
  const Facts bands{{7, 10},       {211, 0.5F},   {212, 1},     {221, 0.5F},   {222, 1},
                    {225, 1},      {234, 0.5F},   {284, 0.5F},  {297, low.a1}, {298, low.a2},
                    {299, low.b0}, {300, low.b1}, {301, low.b2}};
  Facts facts = image(bands);
  expectImage(rig.core->sets, facts);
  raw[index(bandSlot(1, 3, BandField::enable))] = 0.0F;
  rig.reload(raw);
  rig.call({});
  facts[225] = 0.0F;
  expectImage(rig.core->sets, facts);
  EXPECT_EQ(rig.core->sets.effectFlags(), 0U);
}

// Entries of the latencies that stages might announce, and the sum.
TEST(Image, SumsTheLatenciesThatAreSwitchedOn) {
  const std::pair<Facts, float> cases[] = {
      {{{42, 1}, {44, 100}, {579, 1}, {661, 9}, {662, 8}, {663, 7}, {531, 1}, {537, 40}}, 149},
      {{{579, 1}, {661, 7}, {662, 9}, {663, 8}, {531, 1}, {537, 20}, {538, 40}, {540, 30}}, 49},
      {{{579, 1}, {663, 9}, {531, 1}, {540, 40}}, 49},
      {{{42, 2}, {44, 100}, {579, 0.5F}, {661, 9}, {531, 0}, {537, 40}}, 0}};
  for (const auto& [entries, sum] : cases) {
    EngineRig rig(factorySettings());
    for (const auto& [at, value] : entries) rig.core->sets.pendingImage().at(at) = value;
    rig.reload(byFade(factorySettings()));
    EXPECT_EQ(rig.core->sets.pendingImage().at(673), sum);
    EXPECT_EQ(rig.core->sets.rawParameters()[309], 0.0F) << "used up by one build";
  }
}

TEST(Image, UnknownRatesSwitchTheEffectOffAndTheRestIsBuilt) {
  const std::tuple<float, bool, float> cases[] = {
      {16000, true, 3333},  {22050, true, 4594},   {24000, true, 5000},  {44100, true, 9188},
      {48000, true, 10000}, {88200, true, 18375},  {96000, true, 20000}, {192000, true, 40000},
      {32000, false, 6667}, {72000, false, 15000}, {0, false, 0}};
  for (const auto& [rate, known, fadeLength] : cases) {
    EngineRig rig(equalizerGain(0.5F), {.format = {.sampleRate = rate}});
    EXPECT_EQ(rig.image()[Entry::fadeLength], fadeLength);
    EXPECT_EQ(rig.call(constant(4, 1.0F)), constant(4, known ? 0.5F : 1.0F));
    EXPECT_EQ(rig.image().at(234), 0.5F);
    rig.reload(byFade(equalizerGain(0.5F)));  // of no length in the last case
    for (const float sample : rig.call(constant(6, 1.0F)))
      EXPECT_FLOAT_EQ(sample, known ? 0.5F : 1.0F) << rate;
  }
}

TEST(Image, BadTrimsFallToOne) {
  const std::pair<float, float> trims[] = {{0, 1},     {0.1F, 0.1F}, {10, 10},
                                           {10.5F, 1}, {-1, 1},      {std::nanf(""), 1}};
  for (const auto& [stored, used] : trims) {
    EngineRig rig(factoryWith({{Raw::inputGain, stored}, {Raw::outputGain, stored}}),
                  {.mode = EffectMode::array});
    EXPECT_EQ(rig.image()[Entry::inputGain], used) << stored;
    EXPECT_EQ(rig.image()[Entry::outputGain], used) << stored;
  }
}

TEST(Image, ModesDecideWhatIsReportedHowManyMicrophonesRunAndWhetherTheLoopbackOpens) {
  constexpr auto array = EffectMode::array, fourChannel = EffectMode::arrayFourChannel;
  const struct {
    ProcessingMode processingMode;
    EffectMode mode;
    std::uint32_t channels;
    float keep, category;
    std::uint32_t flags;
    int microphones;
    bool opens;
    Raw off = Raw::noisePostfilter;  // beside the echo canceller
  } cases[] = {{ProcessingMode::standard, array, 12, 1, 0, 0x1400, 12, true},
               {ProcessingMode::standard, array, 1, 0.5F, 0, 0, 2, true},
               {ProcessingMode::standard, array, 2, 1, 0, 0x1800, 2, true, Raw::beamformer},
               {ProcessingMode::standard, array, 2, 1, 0, 0xc00, 2, true, Raw::levelControl},
               {ProcessingMode::standard, fourChannel, 4, 1, 0, 0x1400, 2, false},
               {ProcessingMode::raw, array, 8, 1, 1, 0, 2, false},
               {ProcessingMode::speech, array, 4, 0, 2, 0x1e00, 4, true},
               {ProcessingMode::speech, fourChannel, 8, 0, 2, 0x1e00, 6, false},
               {ProcessingMode::speech, fourChannel, 1, 0, 2, 0x1e00, 2, false},
               {ProcessingMode::media, array, 8, 1, 3, 0x1400, 2, false},
               {ProcessingMode::communications, array, 4, 0, 4, 0, 2, false},
               {ProcessingMode::movie, array, 4, 1, 5, 0x1400, 2, false},
               {ProcessingMode::notification, array, 4, 0, 0, 0, 4, true}};
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    bool opened = false;
    const auto open = [&opened] {
      opened = true;
      return std::unique_ptr<PacketSource>();
    };
    const RawValues settings = factoryWith(
        {{Raw::keepInDefaultMode, row.keep}, {Raw::echoCancellation, 0.0F}, {row.off, 0.0F}});
    EngineRig rig(settings,
                  {.mode = row.mode,
                   .processingMode = row.processingMode,
                   .format = {.inputChannels = row.channels, .outputChannels = row.channels},
                   .openLoopback = {.open = open, .onHelperThread = false}});
    EXPECT_EQ(rig.image().at(5), row.category);
    for (std::size_t effect = 0; effect < 4; ++effect)
      EXPECT_EQ(rig.image().at(2140 + effect), row.flags >> (9 + effect) & 1U) << effect;
    EXPECT_EQ(rig.core->engine.pipeline.micCount(), row.microphones);
    EXPECT_EQ(opened, row.opens);
    const EffectsChange change = rig.core->sets.reload(settings, ProcessingMode::raw, row.mode);
    EXPECT_EQ(change.before, row.flags);
    EXPECT_EQ(change.changed(), row.flags != 0);
    rig.lock({}, ProcessingMode::raw);
    EXPECT_FALSE(rig.core->engine.pipeline.running());
  }
}

TEST(Arena, KeepsTheLastByteAndReturnsMemoryZeroedWithTheLastBlockOnly) {
  Arena arena;
  auto* first = static_cast<char*>(arena.allocate(64));
  void* second = arena.allocate(64);
  ASSERT_EQ(second, first + 64);
  std::memset(first, 0x55, 128);
  EXPECT_TRUE(arena.release(first));
  EXPECT_EQ(arena.allocate(Arena::capacity - 128), nullptr);
  EXPECT_EQ(arena.allocate(static_cast<std::size_t>(-1)), nullptr);
  EXPECT_NE(arena.allocate(Arena::capacity - 129), first);  // no free list
  EXPECT_TRUE(arena.release(second));
  EXPECT_FALSE(arena.release(nullptr));
  EXPECT_TRUE(arena.release(second));
  EXPECT_FALSE(arena.release(second));
  auto* again = static_cast<char*>(arena.allocate(128));
  ASSERT_EQ(again, first);
  EXPECT_TRUE(std::all_of(again, again + 128, [](char byte) { return byte == 0; }));
}

TEST(Blocks, LocksReuseTheirBlocksAndReleaseReturnsAll) {
  EngineRig rig(factorySettings());
  const std::size_t used = rig.core->arena.used();
  EXPECT_EQ(used, 2 * (5460 + 8576 + 2144) + 3568U + 624 + (8576 + 3568 + 624 + 2144));
  for (int i = 0; i < 50; ++i) rig.lock({.sampleRate = 44100.0F});
  EXPECT_EQ(rig.core->arena.used(), used);
  EXPECT_EQ(BlockPart::alive(), 1);
  EXPECT_EQ(rig.core->engine.arena, &rig.core->arena);
  rig.core->sets.release();
  EXPECT_EQ(rig.core->arena.liveCount(), 0U);
}

TEST(Blocks, AFullArenaRefusesAndTakesNothing) {
  auto core = std::make_unique<CaptureCore>(LoopbackOpener{});
  void* rest = core->arena.allocate(Arena::capacity - 20000);
  EXPECT_FALSE(core->sets.allocate());
  EXPECT_EQ(core->sets.masterVolume(), 0.0F);
  EXPECT_EQ(core->arena.liveCount(), 1U);
  core->arena.release(rest);
  for (int times = 0; times < 2; ++times) EXPECT_TRUE(core->sets.allocate());
  EXPECT_EQ(core->lockBlock.pending, 1);
  core->sets.settingRead();
  EXPECT_EQ(core->lockBlock.pending, 0);
  EXPECT_EQ(core->engine.inputIndex, slotMapOf(2, 0));
  EXPECT_EQ(core->engine.outputIndex, slotMapOf(2, 0));
  // Flat: the master is cleared in the image, but the equaliser stays in force.
  std::ranges::copy(equalizerGain(1.0F), core->sets.rawParameters().begin());
  core->sets.initialize(ProcessingMode::standard, EffectMode::equalizer);
  EXPECT_TRUE(core->engine.equalizer.active());
  core->sets.setVolumes({});
  expectImage(core->sets, image({{7, 10}, {212, 1}, {222, 1}, {2138, 0}, {2139, 0}}));
  core->sets.proposeRate(32000.0F);
  EXPECT_EQ(core->sets.currentImage().at(8), 32000.0F);
  EXPECT_EQ(core->sets.pendingImage().at(8), 32000.0F);
  const std::size_t blocks = core->arena.liveCount();
  rest = core->arena.allocate(Arena::capacity - core->arena.used() - (8576 + 3568 + 624 + 2100));
  for (int times = 0; times < 2; ++times) {
    EXPECT_FALSE(core->sets.lock({}, ProcessingMode::speech, EffectMode::array, core->context));
    EXPECT_EQ(core->arena.liveCount(), blocks + 1);
  }
}

TEST(SlotMap, SpeakersFindTheirSlots) {
  const std::tuple<std::uint32_t, std::uint32_t, std::vector<int>> cases[] = {
      {1, 4, {0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
      {2, 0x30, {0, 1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
      {8, 0, {0, 1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
      {4, 0x4000b, {0, 1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1}},
      {11, 0x7ff, {0, 1, 3, -1, 2, 9, 10, 8, 4, 5, -1, -1}},
      {3, 0x80000003, {0, 1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
      {4, 0x63f, {0, 1, 3, -1, 2, -1, -1, -1, -1, -1, -1, -1}}};
  for (const auto& [channels, mask, slots] : cases) {
    const SlotMap map = slotMapOf(channels, mask);
    EXPECT_EQ(std::vector<int>(map.begin(), map.begin() + slotCount), slots) << std::hex << mask;
  }
}

}  // namespace
}  // namespace vellumic
