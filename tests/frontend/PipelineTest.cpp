// What the model does not tell: the four-channel form, bad settings, and the way of settings and
// parts from a builder to the stream.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "frontend/BankPair.h"
#include "frontend/BlockPart.h"
#include "frontend/ResamplerBank.h"
#include "frontend/SampleRing.h"
#include "tests/frontend/PipelineRig.h"

namespace vellumic {
namespace {

float sample(int n) { return n < 0 ? 0.0F : static_cast<float>(n * 37 % 101 - 50) * 1e-3F; }

TEST(Pipeline, FourChannelFormReturnsTwoMicrophonesAndCancelsNothing) {
  PipelineRig rig;
  rig.setStages(1.0F);
  rig.set(Raw::levelControl, 0.0F);
  rig.handover.prepareStream(1024, 4, true);
  rig.apply();
  rig.pipeline.micHighPassEnabled = false;
  for (int n = 0; n < 5000; ++n) {
    if (n == 3000) {  // nobody touches the references from here on
      rig.set(Raw::echoCancellation, 0.0F);
      rig.apply();
    }
    std::array<float, 4> frame{sample(n), -1.0F, 0.25F, 0.5F};
    rig.pipeline.processFrame12(frame.data());
    const float expected = sample(n - 2048);
    ASSERT_EQ(frame, (std::array{expected, expected, 0.25F, 0.5F})) << n;
  }
  EXPECT_EQ(rig.pipeline.probe().cancelledBlocks, 0);
  EXPECT_FLOAT_EQ(rig.pipeline.probe().referenceEnergy, 0.75F * 0.75F);

  // A live reload runs the same object frame by frame in the plain form: references are silent.
  for (int n = 0; n < 3000; ++n) rig.run({0.1F, 0.1F});
  EXPECT_EQ(rig.pipeline.probe().referenceEnergy, 0.0F);
  EXPECT_FALSE(rig.pipeline.probe().signalActive);
  rig.handover.prepareStream(1024, 2, false);  // the plain form from its first frame on
  rig.apply();
  for (int n = 0; n < 5000; ++n) rig.run({sample(n), sample(n)});
  EXPECT_TRUE(rig.pipeline.probe().signalActive);
}

TEST(Pipeline, TellsOfNothingBeforeTheFirstFrame) {
  const PipelineRig rig;
  const PipelineProbe& probe = rig.pipeline.probe();
  EXPECT_EQ(std::tuple(probe.blocks, probe.cancelledBlocks, probe.adoptions, probe.lastLag,
                       probe.loopbackDelay, probe.microphoneDelay),
            std::tuple(0, 0, 1, 0, 0, 1024));
  EXPECT_FALSE(probe.delayLocked || probe.streaming || probe.converged || probe.signalActive);
  EXPECT_EQ(probe.microphoneEnergy + probe.residualEnergy + probe.referenceEnergy +
                probe.covarianceEnergy + probe.levelGain,
            0.0F);
  ArrayPipeline alone;  // equal rates
  for (int n = 0; n < 2048; ++n) alone.processFrame(PipelineRig::Frame{}.data());
  EXPECT_EQ(alone.probe().blocks, 2);
}

// The 150 Hz high-pass has no stable form at an internal rate of 200 Hz.
TEST(Pipeline, RecoversFromAnAbsurdInternalRate) {
  PipelineRig rig;
  for (const float rate : {200.0F, 1.0F, 16000.0F}) {
    rig.set(Raw::internalRate, rate);
    rig.apply();
    for (int n = 0; n < 60000; ++n) ASSERT_TRUE(std::isfinite(rig.run({0.0F, sample(n)})[1]));
  }
  EXPECT_NE(rig.run({0.1F, 0.1F})[1], 0.0F);
}

TEST(Pipeline, BuildsMergeUntilTheyAreAdopted) {
  PipelineRig rig;
  rig.handover.build(rig.raw, rig.stream);  // frees what the construction left
  const auto parts = [] { return LiveCount<BlockPart>::alive() + LiveCount<BankPair>::alive(); };
  const int before = parts();
  const auto adoptions = rig.pipeline.probe().adoptions;
  // The block goes away and comes back, the channels change: one adoption, one fresh stream.
  for (const float size : {512.0F, 256.0F, 1024.0F}) {
    rig.set(Raw::blockSize, size);
    rig.handover.build(rig.raw, rig.stream);
  }
  rig.handover.prepareStream(1024, 4, false);
  rig.handover.build(rig.raw, rig.stream);
  for (const int refused : {1, 13}) EXPECT_FALSE(rig.handover.setChannels(refused));
  EXPECT_EQ(parts(), before + 2);
  for (int times = 0; times < 2; ++times) rig.pipeline.adopt(rig.handover);
  EXPECT_EQ(rig.pipeline.probe().adoptions, adoptions + 1);
  EXPECT_EQ(rig.pipeline.micCount(), 4);
  EXPECT_EQ(parts(), before + 2) << "retired, not freed here";
  rig.handover.build(rig.raw, rig.stream);
  EXPECT_EQ(parts(), before);
  // A size that cannot be is the stream's, not the one before.
  rig.set(Raw::blockSize, 512.0F);
  rig.apply();
  rig.set(Raw::blockSize, -1.0F);
  rig.handover.prepareStream(1024, 4, false);
  EXPECT_EQ(rig.handover.build(rig.raw, rig.stream).blockSize, 1024);
}

TEST(SampleRing, HoldsAnyDelayAndAnyCountWithinItsCapacity) {
  SampleRing ring;
  EXPECT_EQ(ring.capacity(), 100);
  ring.setCapacity(1);
  EXPECT_EQ(ring.capacity(), 2);
  ring.setDelay(250);
  ring.resize(100, 2);
  EXPECT_EQ(ring.available(), 50);
  ring.setDelay(190);
  EXPECT_EQ(ring.available(), 0) << "not beyond what waits";
  EXPECT_FALSE(ring.setDelay(-1));
  ChannelArrays samples(2, std::vector<float>(250, 7.0F));
  for (std::size_t n = 0; n < 250; ++n) samples[0][n] = static_cast<float>(n);
  const ChannelArrays before = samples;
  ring.exchange(samples, 250);
  EXPECT_EQ(samples, before);
  ring.push({samples[0]}, 10);
  ring.pop(samples, 10);
  EXPECT_EQ(samples[1][9], 0.0F) << "a channel without an array";
}

TEST(ResamplerBank, TakesFromOneToSixteenChannelsAndTellsItsDelay) {
  ResamplerBank bank;
  EXPECT_EQ(bank.channels(), 2);
  EXPECT_EQ(bank.framesBeforeOutput(), 0);
  for (const auto& [asked, channels] : {std::pair{16, 16}, {17, 16}, {1, 1}, {0, 1}}) {
    bank.setChannels(asked);
    EXPECT_EQ(bank.channels(), channels);
    EXPECT_EQ(ResamplerBank(asked, 1.0, 1.0).channels(), channels);
  }
  bank.setRates(16000.0, 48000.0);
  bank.setChannels(2);
  const float oneAndMore[] = {1.0F, 99.0F};
  int made = 0, pushes = 0;
  while (bank.push({oneAndMore, 0, 1, 1}, 1, {&made, 1}) == 0) ++pushes;
  EXPECT_EQ(pushes, 251);
  EXPECT_EQ(pushes, bank.framesBeforeOutput());
  ChannelArrays samples(2, std::vector<float>(static_cast<std::size_t>(made), 7.0F));
  ASSERT_TRUE(bank.pop(samples, made));
  EXPECT_EQ(samples[1], std::vector<float>(samples[1].size())) << "a channel that nobody brings";
  for (const double rate : {16000.0, 48000.0}) bank.setRates(rate, 48000.0);
  EXPECT_EQ(bank.framesBeforeOutput(), 0);
  for (const auto& [sound, heard] : {std::pair{1e6F, 1e6F}, {-1e6F, -1e6F}, {1.1e6F, 0.0F}}) {
    bank.push({&sound, 0, 0, 2}, 1, {&made, 1});
    EXPECT_TRUE(bank.pop(samples, 1));
    EXPECT_EQ(samples[1][0], heard);
  }
  for (const auto& [asked, run] : {std::pair{0, 1}, {1, 1}, {64, 64}, {65, 64}})
    EXPECT_EQ(ResamplerBank(2, 1.0, 1.0, asked).runLength(), run);
}

}  // namespace
}  // namespace vellumic
