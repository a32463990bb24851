// Settings on their way to the real-time thread: merging, carrying over, freeing.
#include <gtest/gtest.h>

#include "frontend/BankPair.h"
#include "frontend/BlockPart.h"
#include "tests/frontend/PipelineRig.h"

namespace vellumic {
namespace {

// A stream of noise into all microphones.
PipelineRig::Frame noisyFrame(Noise& noise) {
  PipelineRig::Frame frame{};
  for (float& sample : frame) sample = noise();
  return frame;
}

TEST(PipelineHandover, BuildsMergeUntilTheyAreAdopted) {
  PipelineRig rig;
  Noise noise(1);
  for (int n = 0; n < 3000; ++n) rig.run(noisyFrame(noise));
  rig.handover.build(rig.raw, rig.stream);  // frees what the construction left
  const int blocks = LiveCount<BlockPart>::alive(), banks = LiveCount<BankPair>::alive();
  const auto adoptions = rig.pipeline.probe().adoptions;

  // The block goes away and comes back, the channels change: one adoption, one fresh stream.
  for (const float size : {512.0F, 256.0F, 1024.0F}) {
    rig.set(Raw::blockSize, size);
    rig.handover.build(rig.raw, rig.stream);
  }
  rig.handover.prepareStream(1024, 4, false);
  rig.stream.deviceRate = 48000.0F;
  rig.handover.build(rig.raw, rig.stream);
  EXPECT_EQ(LiveCount<BlockPart>::alive(), blocks + 1);
  EXPECT_EQ(LiveCount<BankPair>::alive(), banks + 1);
  EXPECT_EQ(rig.pipeline.micCount(), 2);
  EXPECT_NE(rig.run(noisyFrame(noise))[1], 0.0F) << "still the old stream";

  rig.pipeline.adopt(rig.handover);
  rig.pipeline.adopt(rig.handover);
  EXPECT_EQ(rig.pipeline.probe().adoptions, adoptions + 1);
  EXPECT_EQ(rig.pipeline.micCount(), 4);
  EXPECT_EQ(LiveCount<BlockPart>::alive(), blocks + 1) << "retired, not freed here";
  rig.handover.build(rig.raw, rig.stream);
  EXPECT_EQ(LiveCount<BlockPart>::alive(), blocks);
  EXPECT_EQ(LiveCount<BankPair>::alive(), banks);
}

TEST(PipelineHandover, ANewBlockCarriesOnWhatOutlivesIt) {
  BlockPart old(1024, 3, 4), fresh(512, 2, 4);
  old.frameSample = {1.0F, 2.0F, 3.0F};
  for (BiquadSection& section : old.micHighPass) section.z1 = 4.0F, section.z2 = 5.0F;
  old.cancellers[1].blockCounter = 6;
  fresh.carryOver(old);
  EXPECT_EQ(fresh.frameSample, (std::vector{1.0F, 2.0F}));
  EXPECT_EQ(fresh.micHighPass[1].z1, 4.0F);
  EXPECT_EQ(fresh.micHighPass[1].z2, 5.0F);
  EXPECT_EQ(fresh.cancellers[1].blockCounter, 6);
}

TEST(PipelineHandover, ChannelCountsOutsideTheFrameKeepTheMicrophones) {
  PipelineRig rig;
  for (const auto& [asked, microphones] :
       {std::pair{8, 8}, {1, 8}, {-2147483647, 8}, {13, 8}, {3, 3}, {0, 3}}) {
    EXPECT_EQ(rig.handover.setChannels(asked), asked == microphones);
    rig.apply();
    EXPECT_EQ(rig.pipeline.micCount(), microphones) << asked;
  }
}

TEST(PipelineHandover, ASettingThatSoundsTheSameChangesNothingThatRuns) {
  PipelineRig reloaded, steady;
  for (PipelineRig* rig : {&reloaded, &steady}) {
    rig->setStages(1.0F);
    rig->stream.deviceRate = 48000.0F;
    rig->begin(2);
  }
  Noise noise(4);
  for (int n = 0; n < 48000; ++n) {
    if (n % 1777 == 0) {
      reloaded.set(Raw::noiseSmoothingHalfWidth, static_cast<float>(n % 60));
      reloaded.apply();
    }
    const PipelineRig::Frame frame = noisyFrame(noise);
    ASSERT_EQ(reloaded.run(frame), steady.run(frame)) << n;
  }
}

}  // namespace
}  // namespace vellumic
