// The echo stage inside the pipeline: alignment, cancelling, and what interrupts them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/frontend/SpeakerRoom.h"

namespace vellumic {
namespace {

TEST(PipelineEcho, AlignsAndCancelsNearAndFarEchoes) {
  for (const std::size_t delay : {std::size_t{8}, std::size_t{320}, std::size_t{3200}}) {
    SCOPED_TRACE(delay);
    Room room(delay);
    const PipelineProbe probe = room.play(6.0F);
    EXPECT_TRUE(probe.delayLocked);
    EXPECT_NE(probe.lastLag, 0);
    EXPECT_TRUE(probe.streaming);
    EXPECT_GT(room.enhancement(), 20.0F);
    // Once aligned, the lag that is left lies within the target's tolerance.
    const int moved = probe.loopbackDelay - (probe.microphoneDelay - 1024);
    if (moved != 0) {
      EXPECT_NEAR(probe.lastLag - moved, 102, 31);
    }
  }
}

TEST(PipelineEcho, OnlyAWiderSearchFindsAnEchoBeyondFourBlocks) {
  Room room(4800);
  for (const auto& [blocks, found] :
       {std::pair{4.0F, false}, {7.9F, false}, {8.0F, true}, {4.0F, false}}) {
    SCOPED_TRACE(blocks);
    room.rig.set(Raw::delaySearchBlocks, blocks);
    room.rig.apply();
    room.play(6.0F);
    EXPECT_EQ(room.enhancement() > 20.0F, found);
  }
}

TEST(PipelineEcho, AMuteDropsStaleReferencesAndAlignsAnew) {
  Room room(320);
  room.play(4.0F);
  ASSERT_TRUE(room.rig.pipeline.probe().delayLocked);
  room.rig.stream.muted = true;
  room.rig.apply();
  const PipelineProbe before = room.rig.pipeline.probe();
  const PipelineProbe muted = room.play(3.0F);
  EXPECT_EQ(muted.cancelledBlocks, before.cancelledBlocks);
  EXPECT_TRUE(muted.delayLocked);

  room.rig.stream.muted = false;
  room.rig.apply();
  EXPECT_FALSE(room.play(0.1F).delayLocked);
  EXPECT_TRUE(room.play(4.0F).delayLocked);
  EXPECT_GT(room.enhancement(), 20.0F);
}

TEST(PipelineEcho, AFreshStreamUnlocksAndKeepsLongTermKnowledge) {
  Room room(3200);
  ASSERT_TRUE(room.play(8.0F).converged);
  room.rig.set(Raw::blockSize, 512.0F);
  room.rig.apply();
  const PipelineProbe fresh = room.rig.pipeline.probe();
  EXPECT_FALSE(fresh.delayLocked);
  EXPECT_TRUE(fresh.converged);
  EXPECT_EQ(fresh.loopbackDelay, 0);
  EXPECT_EQ(fresh.microphoneDelay, 1024);
  room.rig.set(Raw::blockSize, 1024.0F);
  room.rig.apply();
  EXPECT_TRUE(room.play(6.0F).delayLocked);
  EXPECT_GT(room.enhancement(), 15.0F);
}

TEST(PipelineEcho, APauseOfTheStreamLeavesNoStaleReferences) {
  for (const std::size_t frames : {rate / 100, 3 * rate}) {
    for (const bool unlocked : {false, true}) {
      SCOPED_TRACE(frames);
      Room room(320);
      room.play(3.0F);
      for (std::size_t n = 0; n < frames; ++n) room.speakers.tick();  // music plays on
      if (unlocked) {
        room.rig.begin(2);
        room.rig.pipeline.startLoopback();
      } else {
        room.rig.pipeline.skipFrames();
      }
      EXPECT_TRUE(room.play(5.0F).delayLocked);
      EXPECT_GT(room.enhancement(), 20.0F) << (unlocked ? "unlocked" : "silent buffers");
    }
  }
}

TEST(PipelineEcho, RecoversFromPausesOfTheLoudspeakers) {
  Room room(320);
  room.play(3.0F);
  for (const float pause : {0.3F, 4.99F, 5.017F, 5.04F}) {
    SCOPED_TRACE(pause);
    ASSERT_TRUE(room.rig.pipeline.probe().delayLocked);
    room.speakers.playing = false;
    room.play(pause);
    room.speakers.playing = true;
    EXPECT_FALSE(room.play(0.15F).delayLocked);
    EXPECT_TRUE(room.play(3.0F).delayLocked);
    EXPECT_GT(room.enhancement(), 20.0F);
  }
}

TEST(PipelineEcho, ALockAtAnotherInternalRateOpensTheLoopbackAnew) {
  Room room(320);
  room.play(3.0F);
  for (const float internalRate : {8000.0F, 16000.0F}) {
    SCOPED_TRACE(internalRate);
    room.rig.set(Raw::internalRate, internalRate);
    room.rig.begin(2);
    room.rig.pipeline.startLoopback();
    EXPECT_TRUE(room.play(6.0F).delayLocked);
    EXPECT_GT(room.enhancement(), 20.0F);
  }
}

TEST(PipelineEcho, CancelledBlocksComeHalfABlockLater) {
  Room room(320);
  Noise noise(2);
  std::vector<float> spoken;
  float out = 0.0F, product = 0.0F, inPower = 0.0F, outPower = 0.0F;
  for (std::size_t n = 0; n < 4 * rate; ++n) {
    room.speakers.tick();
    spoken.push_back(noise());
    out = room.rig.run({spoken[n], spoken[n]})[1];
    if (n < 2 * rate) continue;
    const float in = spoken[n - 1024 - 1024 - 512];
    product += in * out;
    inPower += in * in;
    outPower += out * out;
  }
  EXPECT_GT(product / std::sqrt(inPower * outPower), 0.7F)
      << "white noise: about 0 at any other delay";
}

TEST(PipelineEcho, ReferenceMonitorReplacesTheSecondMicrophone) {
  Room room(320);
  room.rig.set(Raw::referenceMonitor, 1.0F);
  room.rig.apply();
  room.play(3.0F);
  EXPECT_EQ(room.rig.pipeline.probe().cancelledBlocks, 0);
  // Somewhere in the last second the loudspeaker played exactly this.
  EXPECT_NE(room.last[1], 0.0F);
  EXPECT_NE(std::find(room.speakers.left.end() - rate, room.speakers.left.end(), room.last[1]),
            room.speakers.left.end());

  Room silent(320);
  silent.speakers.playing = false;
  silent.rig.set(Raw::referenceMonitor, 1.0F);
  silent.rig.apply();
  EXPECT_FALSE(silent.play(1.0F).streaming);
  Noise noise(1);
  for (int n = 0; n < 4000; ++n) silent.last = silent.rig.run({noise(), noise()});
  EXPECT_NE(silent.last[0], 0.0F);
  EXPECT_EQ(silent.last[1], 0.0F);
}

}  // namespace
}  // namespace vellumic
