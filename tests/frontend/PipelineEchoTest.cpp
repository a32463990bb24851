// The echo stage inside the pipeline: alignment, cancelling, and what interrupts them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

#include "frontend/BlockPart.h"
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

TEST(PipelineEcho, ALockIsGivenUpWhenASettledFilterMovesAgain) {
  for (const auto& [covariance, settled, kept] :
       {std::tuple{0.0301F, true, false}, {0.0299F, true, true}, {9.0F, false, true}}) {
    EchoStage stage({});
    BlockPart block(256, 2, 4);
    stage.referenceRequired = false;
    stage.delayLocked = true;
    block.cancellers[0].covarianceEnergy = covariance;
    block.cancellers[0].converged = settled;
    stage.run(block, {.useLoopback = false, .referenceMonitor = false});
    EXPECT_EQ(stage.delayLocked, kept) << covariance;
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

}  // namespace
}  // namespace vellumic
