// Calls, loops and entry checks.
#include <gtest/gtest.h>

#include <future>
#include <limits>
#include <thread>

#include "engine/ProcessCall.h"
#include "tests/engine/EngineRig.h"

namespace vellumic {
namespace {

TEST(Process, AContendedLockLetsTheFramesOutOnTheOldSet) {
  EngineRig rig(equalizerGain(0.5F));
  rig.reload(equalizerGain(0.25F));
  std::promise<void> held, done;  // a latch may sleep through its wake-up with MinGW's library
  std::thread holder([&] {
    const LockScope scope(rig.core->lockBlock.parameterLock);
    held.set_value();
    done.get_future().wait();
  });
  held.get_future().wait();
  EXPECT_EQ(rig.call(constant(4, 1.0F)), constant(4, 0.5F));
  EXPECT_EQ(rig.core->lockBlock.pending, 1);
  done.set_value();
  holder.join();
  EXPECT_EQ(rig.call(constant(4, 1.0F)), constant(4, 0.25F));
}

TEST(Process, AReloadWhileUnlockedOnlyStages) {
  EngineRig rig(equalizerGain(0.5F));
  rig.reload(equalizerGain(0.25F));
  EXPECT_EQ(rig.core->engine.equalizer.pairs()[0].section(0, 0).b0, 0.5F);
  rig.lock({});
  EXPECT_EQ(rig.core->engine.equalizer.pairs()[0].section(0, 0).b0, 0.25F);
}

struct ChannelCase {
  std::uint32_t inputs, outputs;
};
class ChannelTest : public testing::TestWithParam<ChannelCase> {};

TEST_P(ChannelTest, ChannelsTravelByPosition) {
  const auto [inputs, outputs] = GetParam();
  EngineRig rig(equalizerGain(0.5F),
                {.format = {.inputChannels = inputs, .outputChannels = outputs}});
  std::vector<float> input;
  for (std::uint32_t n = 0; n < 3 * inputs; ++n)
    input.push_back(static_cast<float>(n % inputs + 1));
  const std::vector<float> output = rig.call(input);
  ASSERT_EQ(output.size(), 3 * outputs);
  for (std::uint32_t n = 0; n < output.size(); ++n) {
    const std::uint32_t channel = n % outputs;
    const bool travels = channel < inputs && channel < static_cast<std::uint32_t>(slotCount);
    EXPECT_EQ(output[n], travels ? 0.5F * static_cast<float>(channel + 1) : 0.0F) << n;
  }
}
INSTANTIATE_TEST_SUITE_P(Counts, ChannelTest,
                         testing::Values(ChannelCase{1, 1}, ChannelCase{1, 2}, ChannelCase{3, 3},
                                         ChannelCase{5, 3}, ChannelCase{8, 8}, ChannelCase{12, 12},
                                         ChannelCase{14, 14}));

TEST(Process, EffectOffForwardsAndNoFramesDoNothing) {
  EngineRig rig(factoryWith({{Raw::masterEnable, 0.0F}}));
  EXPECT_EQ(rig.call(constant(6, 0.7F)), constant(6, 0.7F));
  EXPECT_TRUE(rig.call({}).empty());
}

// Where no stage runs by position, speakers beyond the front pair travel by marks in the mask,
// which a lock clears: none on the way in or out means that a channel keeps what the buffer held.
TEST(Process, SpeakersTravelByTheirMarks) {
  struct Marks {
    std::size_t in, out;
    std::vector<std::size_t> slots;
  };
  const Marks cases[] = {{9, 14, {2}},     {10, 15, {4}}, {11, 16, {7}}, {12, 17, {5, 6}},
                         {13, 18, {8, 9}}, {0, 1648, {3}}};  // the vendor channel is never read
  RawValues off = equalizerGain(0.5F);
  off[index(Raw::masterEnable)] = 0.0F;
  const RigSetup setup{.format = {.inputChannels = 10, .outputChannels = 10}};
  for (const bool fading : {false, true})
    for (const bool marked : {true, false})
      for (const auto& [in, out, slots] : cases) {
        EngineRig rig(off, setup);
        for (int slot = 0; slot < 10; ++slot)
          rig.core->engine.inputIndex[static_cast<std::size_t>(slot)] =
              rig.core->engine.outputIndex[static_cast<std::size_t>(slot)] = slot;
        float gain = 1.0F;
        if (fading) {
          rig.reload(byFade(equalizerGain(0.5F)));
          rig.call(constant(10 * 2500, 1.0F));
          gain = 0.75F + 0.25F * 0.5F;
        } else {
          rig.core->lockBlock.holdFlag = 1;
        }
        std::uint8_t* mask = *rig.core->context.maskSlot;
        mask[28] = marked;
        if (in != 0) mask[in] = 1;
        mask[out] = 1;
        std::vector<float> expected(10, EngineRig::untouched);
        expected[0] = gain * 1.0F;
        expected[1] = gain * 2.0F;
        if (marked)
          for (const std::size_t slot : slots)
            expected[slot] = in == 0 ? 0.0F : gain * static_cast<float>(slot + 1);
        EXPECT_EQ(rig.call({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}), expected) << out << fading << marked;
      }
}

TEST(Process, TheKeywordDetectorLeavesItsFourChannelFormWithAReloadUntilTheNextLock) {
  const RigSetup setup{.mode = EffectMode::arrayFourChannel,
                       .processingMode = ProcessingMode::speech,
                       .format = {.sampleRate = 16000.0F, .inputChannels = 4, .outputChannels = 4}};
  const RawValues settings = factoryWith({{Raw::levelControl, 0.0F}});
  EngineRig rig(settings, setup), fresh(settings, setup);
  rig.core->sets.reload(settings, setup.processingMode, EffectMode::array);
  for (int call = 0; call < 20; ++call) rig.call(constant(4 * 160, 0.0F));
  EXPECT_EQ(rig.image()[Entry::effectMode], static_cast<float>(EffectMode::array));

  rig.core->sets.reload(settings, setup.processingMode, EffectMode::array);
  rig.lock(setup.format);
  for (std::size_t call = 0; call < 50; ++call) {
    const std::vector<float> input = sine(160, 4, 0.3, call * 160);
    const std::vector<float> heard = rig.call(input), wanted = fresh.call(input);
    for (std::size_t n = 0; n < heard.size(); ++n) {
      // The first two are converted and no more; the others pass untouched.
      EXPECT_NEAR(heard[n], wanted[n], 1e-3F) << call;
      if (n % 4 >= 2) {
        EXPECT_EQ(heard[n], input[n]);
      }
    }
  }
}

// Loudspeakers at 24 kHz that played 100 ms.
class OnePacket final : public PacketSource {
 public:
  MixFormat mixFormat() const noexcept override { return {.channels = 2, .sampleRate = 24000}; }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override { return taken_ ? 0 : 2400; }
  bool get(Packet& packet) noexcept override {
    packet = {.samples = nullptr, .frames = 2400, .silent = true};
    return true;
  }
  void release(std::uint32_t) noexcept override { taken_ = true; }

 private:
  bool taken_ = false;
};

TEST(Process, TheLoopbackOpensAtTheInternalRateOfItsStream) {
  bool present = false;
  const RigSetup setup{.mode = EffectMode::array,
                       .openLoopback = {.open = [&present]() -> std::unique_ptr<PacketSource> {
                                          return present ? std::make_unique<OnePacket>() : nullptr;
                                        },
                                        .onHelperThread = false}};
  EngineRig rig(factorySettings(), setup);
  present = true;
  rig.reload(factoryWith({{Raw::internalRate, 24000.0F}}));  // not adopted before the lock
  rig.lock(setup.format);
  LoopbackSource& loopback = rig.core->engine.pipeline.echo.loopback;
  loopback.drain();
  ChannelArrays rows(2, std::vector<float>(2400));
  EXPECT_FALSE(loopback.popBlock(rows, 2400));  // the first block is dropped
  EXPECT_TRUE(loopback.popBlock(rows, 2400));
}

TEST(Process, BuffersWithoutSamplesMakeTheReferencesStale) {
  for (const std::uint32_t flags :
       {buffer_flags::valid, buffer_flags::silent, buffer_flags::invalid}) {
    const RigSetup setup{
        .mode = EffectMode::array,
        .processingMode = ProcessingMode::speech,
        .format = {.sampleRate = 16000.0F, .inputChannels = 2, .outputChannels = 2},
        .openLoopback = {.open = [] { return std::make_unique<OnePacket>(); },
                         .onHelperThread = false}};
    EngineRig rig(factorySettings(), setup);
    rig.call(constant(2 * 160, 0.0F), flags);
    rig.call(constant(2 * 1024, 0.0F));  // a block is complete
    LoopbackSource& loopback = rig.core->engine.pipeline.echo.loopback;
    ChannelArrays rows(2, std::vector<float>(1));
    loopback.popBlock(rows, 1);  // false after a discard
    EXPECT_EQ(loopback.popBlock(rows, 1), flags == buffer_flags::valid) << flags;
  }
}

TEST(Process, ABadSampleIsHeardInItsCallOnlyAndOnItsChannelOnly) {
  RawValues peak = equalizerGain(1.0F);
  for (const int side : {0, 1})
    for (const auto& [field, value] : {std::pair{BandField::type, 1.0F},
                                       {BandField::frequency, 1000.0F},
                                       {BandField::gain, 2.0F}})
      peak[index(bandSlot(side, 0, field))] = value;
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity(),
        std::numeric_limits<float>::max()}) {
    EngineRig rig(peak), undisturbed(peak);
    std::vector<float> input = sine(480, 2, 0.1);
    undisturbed.call(input);
    input[200] = bad;
    EXPECT_TRUE(std::isfinite(rig.call(input)[199]));
    EngineRig fresh(peak);
    const std::vector<float> next = sine(480, 2, 0.1, 480), heard = rig.call(next),
                             anew = fresh.call(next), on = undisturbed.call(next);
    for (std::size_t n = 0; n < next.size(); n += 2) {
      EXPECT_EQ(heard[n], anew[n]) << bad;
      EXPECT_EQ(heard[n + 1], on[n + 1]) << bad;
    }
  }
}

TEST(Call, ChecksCountsThenLock) {
  constexpr CallState ready{.initialized = true, .locked = true, .limits = {}};
  EXPECT_TRUE(admitCall(ready, 1, 1));
  EXPECT_FALSE(admitCall(ready, 0, 0));
  EXPECT_FALSE(admitCall(ready, 2, 2));
  EXPECT_FALSE(admitCall(ready, 1, 2));
  EXPECT_FALSE(admitCall({.initialized = false, .locked = true, .limits = {}}, 1, 1));
  EXPECT_FALSE(admitCall({.initialized = true, .locked = false, .limits = {}}, 1, 1));
}

TEST(Call, CutsDenormalsAlsoWhileUnlocked) {
  float product = 1.0F;
  std::thread([&] {  // the mode stays set on a thread: use one that ends
    volatile float least = std::numeric_limits<float>::min(), half = 0.5F;
    (void)admitCall({.initialized = true, .locked = false, .limits = {}}, 1, 1);
    product = least * half;
  })
      .join();
  EXPECT_EQ(product, 0.0F);
}

TEST(Call, ABadFlagLeavesTheConnectionAsItWas) {
  EngineRig rig(equalizerGain(0.5F));
  std::vector<float> input(8, 1.0F), samples(8, 3.0F);
  StreamBuffer output{.samples = samples.data(), .validFrames = 4, .flags = buffer_flags::valid};
  const StreamBuffer good{.samples = input.data(), .validFrames = 2, .flags = buffer_flags::valid};
  const StreamBuffer bad{.samples = input.data(), .validFrames = 1, .flags = buffer_flags::invalid};
  runCall(rig.core->context, 1, bad, 1, output);
  EXPECT_EQ(output.validFrames, 4U);
  EXPECT_EQ(output.flags, buffer_flags::valid);
  runCall(rig.core->context, 1, good, 1, output);
  EXPECT_EQ(output.validFrames, 2U);
  EXPECT_EQ(rig.core->context.inputFrames, 1U);  // the connections
  EXPECT_EQ(rig.core->context.outputFrames, 1U);
  EXPECT_EQ(samples, (std::vector{0.5F, 0.5F, 0.5F, 0.5F, 3.0F, 3.0F, 3.0F, 3.0F}));
}

}  // namespace
}  // namespace vellumic
