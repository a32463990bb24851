// Calls, loops and entry checks.
#include <gtest/gtest.h>

#include <cfenv>
#include <limits>
#include <numeric>
#include <thread>
#include <tuple>

#include "engine/ProcessCall.h"
#include "tests/engine/EngineRig.h"
#include "tests/support/PlayingSpeakers.h"

namespace vellumic {
namespace {

TEST(Process, AContendedLockLetsTheFramesOutOnTheOldSet) {
  EngineRig rig(equalizerGain(0.5F));
  rig.reload(equalizerGain(0.25F));
  {
    const LockScope scope(rig.core->lockBlock.parameterLock);
    std::thread([&] { EXPECT_EQ(rig.call(constant(4, 1.0F)), constant(4, 0.5F)); }).join();
  }
  EXPECT_EQ(rig.call(constant(4, 1.0F)), constant(4, 0.25F));
  EXPECT_FALSE(rig.core->engine.handover.equalizerWaiting);
}

TEST(Process, ChannelsTravelByPosition) {
  const std::pair<std::uint32_t, std::uint32_t> counts[] = {{1, 1}, {1, 2},   {3, 3},  {5, 3},
                                                            {8, 8}, {12, 12}, {14, 14}};
  // A master half on leaves of an array its trims.
  const RawValues trims =
      factoryWith({{Raw::masterEnable, 0.5F}, {Raw::inputGain, 1.5F}, {Raw::outputGain, 2.0F}});
  const std::tuple<EffectMode, RawValues, float> effects[] = {
      {EffectMode::equalizer, equalizerGain(0.5F), 0.5F},
      {EffectMode::array, trims, 3.0F},
      {EffectMode::arrayFourChannel, trims, 3.0F},
      {EffectMode::array, factoryWith({{Raw::masterEnable, 0.0F}}), 1.0F}};
  for (const auto& [mode, settings, gain] : effects)
    for (const auto& [inputs, outputs] : counts) {
      EngineRig rig(settings,
                    {.mode = mode, .format = {.inputChannels = inputs, .outputChannels = outputs}});
      std::vector<float> input, expected;
      for (std::uint32_t n = 0; n < 70; ++n) {  // more than one run of twelve slots
        for (std::uint32_t c = 0; c < inputs; ++c) input.push_back(static_cast<float>(c + 1));
        for (std::uint32_t c = 0; c < outputs; ++c)
          expected.push_back(c < inputs && c < 12 ? gain * static_cast<float>(c + 1) : 0.0F);
      }
      EXPECT_EQ(rig.call(input), expected) << inputs << ' ' << outputs << ' ' << gain;
      EXPECT_EQ(rig.core->engine.inputIndex, slotMapOf(inputs, 0));  // lies behind the run
      EXPECT_EQ(rig.core->engine.outputIndex, slotMapOf(outputs, 0));
    }
}

// Where no stage runs by position, speakers beyond the front pair travel by marks in the mask,
// which a lock clears: none on the way in or out means that a channel keeps what the buffer held.
TEST(Process, SpeakersTravelByTheirMarks) {
  const std::tuple<std::size_t, std::size_t, std::vector<std::size_t>> cases[] = {
      {9, 14, {2}},     {10, 15, {4}},    {11, 16, {7}},
      {12, 17, {5, 6}}, {13, 18, {8, 9}}, {0, 1648, {3}}};  // the vendor channel is never read
  RawValues off = equalizerGain(0.5F);
  off[index(Raw::masterEnable)] = 0.0F;
  const RigSetup setup{.format = {.inputChannels = 10, .outputChannels = 10}};
  for (const bool fading : {false, true})
    for (const bool marked : {true, false})
      for (const auto& [in, out, slots] : cases) {
        EngineRig rig(equalizerGain(0.5F), setup);
        std::iota(rig.core->engine.inputIndex.begin(), rig.core->engine.inputIndex.begin() + 10, 0);
        rig.core->engine.outputIndex = rig.core->engine.inputIndex;
        float gain = 1.0F;
        rig.core->lockBlock.holdFlag = fading ? 0 : 1;
        if (fading) {
          rig.reload(byFade(off));
          rig.call(constant(10 * 2500, 1.0F));
          gain = 0.75F * 0.5F + 0.25F;
        }
        rig.core->engine.frame.fill(9.0F);  // of the frame before
        std::uint8_t* mask = *rig.core->context.maskSlot;
        mask[28] = marked;
        if (in != 0) mask[in] = 1;
        mask[out] = 1;
        std::vector<float> input{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
        std::vector<float> expected(10, EngineRig::untouched);
        expected[0] = gain * 1.0F;
        expected[1] = gain * 2.0F;
        if (marked)
          for (const std::size_t slot : slots)
            expected[slot] = in == 0 ? 0.0F : gain * static_cast<float>(slot + 1);
        for (auto* frames : {&input, &expected}) {  // two frames, unless the gain moves
          const std::vector<float> first = *frames;
          if (!fading) frames->insert(frames->end(), first.begin(), first.end());
        }
        EXPECT_EQ(rig.call(input), expected) << out << fading << marked;
      }
}

TEST(Process, TheKeywordDetectorLeavesItsFourChannelFormWithAReloadUntilTheNextLock) {
  const RigSetup setup{.mode = EffectMode::arrayFourChannel,
                       .processingMode = ProcessingMode::speech,
                       .format = {.sampleRate = 16000.0F, .inputChannels = 4, .outputChannels = 4}};
  EngineRig rig(factorySettings(), setup);
  for (int round = 0; round < 2; ++round) {
    const std::vector<float> input = constant(4, 1.0F), heard = rig.call(input);
    EXPECT_EQ(heard, (std::vector{0.0F, 0.0F, 1.0F, 1.0F}));  // the references pass untouched
    rig.core->sets.reload(factorySettings(), setup.processingMode, EffectMode::array);
    rig.call(input);
    EXPECT_EQ(rig.image()[Entry::effectMode], 9.0F);
    rig.core->sets.reload(factorySettings(), setup.processingMode, EffectMode::array);
    rig.lock(setup.format);
    EXPECT_EQ(rig.image()[Entry::effectMode], 12.0F);
    EXPECT_EQ(rig.core->engine.pipeline.micCount(), 2);  // as readied for this form
  }
}

// A stream at 16 kHz in a room whose loudspeakers at 48 kHz played 100 ms before it.
struct Loudspeakers {
  Loudspeakers() {
    std::vector<float> unheard;
    for (int n = 0; n < 10; ++n) speakers.hear(unheard, 16000, 1);
  }
  PlayingSpeakers speakers;
  EngineRig rig{
      factorySettings(),
      {.mode = EffectMode::array,
       .format = {.sampleRate = 16000.0F},
       .openLoopback = {.open = [this] { return speakers.packets(); }, .onHelperThread = false}}};
  LoopbackSource& loopback = rig.core->engine.pipeline.echo.loopback;
  ChannelArrays rows = ChannelArrays(2, std::vector<float>(1));
};

TEST(Process, TheLoopbackOpensAtTheInternalRateOfItsStream) {
  Loudspeakers room;
  room.rig.reload(factoryWith({{Raw::internalRate, 24000.0F}}));  // not adopted before the lock
  room.rig.lock({});
  room.loopback.drain();
  EXPECT_FALSE(room.loopback.popBlock(room.rows, 1));  // the first block is dropped
  int samples = 0;
  while (room.loopback.popBlock(room.rows, 1)) ++samples;
  EXPECT_NEAR(samples, 2400, 300);  // some are in the converter
}

TEST(Process, BuffersWithoutSamplesMakeTheReferencesStale) {
  for (const std::uint32_t flags :
       {buffer_flags::valid, buffer_flags::silent, buffer_flags::invalid}) {
    Loudspeakers room;
    room.rig.call(constant(2 * 160, 0.0F), flags);
    room.rig.call(constant(2 * 1024, 0.0F));  // a block is complete
    room.loopback.popBlock(room.rows, 1);     // false after a discard
    EXPECT_EQ(room.loopback.popBlock(room.rows, 1), flags == buffer_flags::valid) << flags;
  }
}

// A pipeline that is not sized for this stream runs on those channels that there are.
TEST(Process, ArraysOfEightMicrophonesOutliveTheirStream) {
  const RawValues bare = factoryWith({{Raw::beamformer, 0.0F}, {Raw::levelControl, 0.0F}});
  const RigSetup setup{.mode = EffectMode::array,
                       .format = {.inputChannels = 8, .outputChannels = 8}};
  EngineRig rig(bare, setup), fresh(bare, {.mode = EffectMode::array});
  rig.lock(setup.format, ProcessingMode::media);
  for (EngineRig* each : {&rig, &fresh}) each->lock({}, ProcessingMode::media);
  EXPECT_EQ(rig.core->engine.pipeline.micCount(), 8);
  for (std::size_t call = 0; call < 20; ++call) {
    std::vector<float> input = sine(480, 2, 0.05, call * 480);
    for (std::size_t n = 1; n < input.size(); n += 2) input[n] *= 0.5F;
    ASSERT_EQ(rig.call(input), fresh.call(input)) << call;
  }
}

TEST(Call, ChecksCountsAndInitialization) {
  constexpr CallState ready{.initialized = true, .locked = true, .limits = {}};
  EXPECT_TRUE(admitCall(ready, 1, 1));
  for (const auto& [inputs, outputs] : {std::pair(0U, 0U), {2U, 2U}, {1U, 2U}})
    EXPECT_FALSE(admitCall(ready, inputs, outputs));
  EXPECT_FALSE(admitCall({.locked = true, .limits = {}}, 1, 1));
}

TEST(Call, RefusesWhileUnlockedButCutsDenormals) {
  std::thread([] {  // the mode stays set on a thread: use one that ends
    volatile float least = std::numeric_limits<float>::min(), half = 0.5F, large = 1e20F;
    volatile float denormal = std::numeric_limits<float>::denorm_min();
    std::fesetenv(FE_DFL_ENV);
    EXPECT_GT(least * half, 0.0F);
    EXPECT_FALSE(admitCall({.initialized = true, .limits = {}}, 1, 1));
    EXPECT_EQ(least * half, 0.0F);
    EXPECT_EQ(denormal * large, 0.0F);
  })
      .join();
}

TEST(Call, ABadFlagLeavesTheConnectionAsItWas) {
  EngineRig rig(equalizerGain(0.5F));
  std::vector<float> input(8, 1.0F), samples(8, 3.0F);
  StreamBuffer output{.samples = samples.data(), .validFrames = 4, .flags = buffer_flags::silent};
  const StreamBuffer good{.samples = input.data(), .validFrames = 2, .flags = buffer_flags::valid};
  const StreamBuffer bad{.samples = input.data(), .validFrames = 1, .flags = buffer_flags::invalid};
  runCall(rig.core->context, 1, bad, 1, output);
  EXPECT_EQ(output.validFrames, 4U);
  EXPECT_EQ(output.flags, buffer_flags::silent);
  runCall(rig.core->context, 1, good, 1, output);
  EXPECT_EQ(output.validFrames, 2U);
  EXPECT_EQ(output.flags, buffer_flags::valid);
  EXPECT_EQ(rig.core->context.inputFrames, 1U);  // the connections
  EXPECT_EQ(rig.core->context.outputFrames, 1U);
  EXPECT_EQ(samples, (std::vector{0.5F, 0.5F, 0.5F, 0.5F, 3.0F, 3.0F, 3.0F, 3.0F}));
}

}  // namespace
}  // namespace vellumic
