// Settings on their way to the real-time thread: merging, carrying over, freeing, and the rules of
// that thread.
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <thread>

#include "frontend/BankPair.h"
#include "frontend/BlockPart.h"
#include "platform/CriticalLock.h"
#include "platform/FloatingPointMode.h"
#include "tests/frontend/PipelineRig.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

#ifdef VELLUMIC_SHORT_TESTS
constexpr int rounds = 12;
#else
constexpr int rounds = 60;
#endif

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

TEST(PipelineHandover, FramesAndAdoptionsKeepTheRulesOfTheRealTimeThread) {
  PipelineRig rig;
  rig.setStages(1.0F);
  rig.stream.deviceRate = 48000.0F;
  rig.begin(4);
  Noise noise(4);
  const auto change = [&](int round) {
    rig.set(Raw::noiseWindowFrames, round % 2 == 0 ? 200.0F : 300.0F);
    rig.set(Raw::blockSize, round % 3 == 0 ? 1024.0F : 500.0F);
    rig.set(Raw::internalRate, round % 5 == 0 ? 16000.0F : 24000.0F);
    if (round % 7 == 0) rig.handover.setChannels(2 + round % 3);
    rig.handover.build(rig.raw, rig.stream);
  };
  for (int round = 0; round < 30; ++round) {
    change(round);
    std::vector<float> samples = noise.take(12 * 1000);
    const RealtimeGuard guard;
    rig.pipeline.adopt(rig.handover);
    for (std::size_t n = 0; n < samples.size(); n += 12) rig.pipeline.processFrame(&samples[n]);
    ASSERT_EQ(guard.violations(), 0) << guard.first() << " in round " << round;
  }
}

// A worker rebuilds with pauses while frames run; the frames adopt when they get the lock.
TEST(PipelineHandover, AWorkerRebuildsUnderARunningStream) {
  PipelineRig rig;
  rig.setStages(1.0F);
  rig.begin(2);
  CriticalLock lock;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    std::array<float, rawCount> raw = rig.raw;
    for (int round = 0; round < rounds; ++round) {
      raw[index(Raw::blockSize)] = round % 3 == 0 ? 512.0F : 1024.0F;
      raw[index(Raw::noiseWindowFrames)] = static_cast<float>(100 + round % 4);
      raw[index(Raw::levelMakeupGain)] = static_cast<float>(1 + round % 8);
      {
        const LockScope scope(lock);
        if (round % 5 == 4) rig.handover.prepareStream(1024, 2 + round % 3, false);
        rig.handover.build(raw, rig.stream);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    done = true;
  });
  Noise noise(9);
  const int before = LiveCount<BlockPart>::alive();
  int mostAlive = before;
  while (!done) {
    if (lock.tryEnter()) {
      rig.pipeline.adopt(rig.handover);
      mostAlive = std::max(mostAlive, LiveCount<BlockPart>::alive());
      lock.leave();
    }
    for (int n = 0; n < 160; ++n) rig.run(noisyFrame(noise));
  }
  worker.join();
  EXPECT_GT(rig.pipeline.probe().adoptions, 4);
  EXPECT_LE(mostAlive, before + 1);
}

// Any bits in any slot: memory stays sound (the sanitizers watch), and ten seconds of good settings
// bring sound back.
TEST(PipelineHandover, RecoversFromAnySettings) {
  constexpr std::array odd{std::numeric_limits<float>::quiet_NaN(),
                           std::numeric_limits<float>::infinity(),
                           -1e30F,
                           1e30F,
                           -1.0F,
                           0.0F,
                           1.0F,
                           1e-40F,
                           2.5F,
                           300.0F};
  constexpr std::array rates{8000.0F, 16000.0F, 44100.0F, 48000.0F};
  cutDenormals();
  std::mt19937 random(20);
  for (int round = 0; round < rounds / 4; ++round) {
    SCOPED_TRACE(round);
    PipelineRig rig;
    const auto good = rig.raw;
    Noise noise(static_cast<unsigned>(round));
    for (int change = 0; change < 4; ++change) {
      for (float& value : rig.raw)
        value = random() % 2 ? odd[random() % odd.size()]
                             : std::bit_cast<float>(static_cast<std::uint32_t>(random()));
      for (const Raw on : {Raw::masterEnable, Raw::keepInDefaultMode}) rig.set(on, 1.0F);
      for (const Raw stage : arrayStages) rig.set(stage, static_cast<float>(random() % 2));
      rig.stream.deviceRate = rates[random() % rates.size()];
      if (random() % 4 == 0)
        rig.handover.prepareStream(1024, static_cast<int>(random()) % 12, false);
      rig.apply();
      for (int n = 0; n < 4000; ++n) rig.run(noisyFrame(noise));
    }
    rig.raw = good;
    rig.setStages(1.0F);
    rig.set(Raw::levelControl, 0.0F);  // its slow memory may hold an absurd level for minutes
    rig.stream.deviceRate = 16000.0F;
    rig.apply();
    for (int n = 0; n < 10 * 16000; ++n) rig.run(noisyFrame(noise));
    float loudest = 0.0F;
    for (int n = 0; n < 4000; ++n) {
      const float out = rig.run(noisyFrame(noise))[0];
      ASSERT_TRUE(std::isfinite(out));
      loudest = std::max(loudest, std::abs(out));
    }
    EXPECT_GT(loudest, 1e-4F);
    EXPECT_LT(loudest, 10.0F);
    rig.set(Raw::levelControl, 1.0F);
    rig.apply();
    for (int n = 0; n < 4000; ++n) ASSERT_TRUE(std::isfinite(rig.run(noisyFrame(noise))[0]));
  }
}

}  // namespace
}  // namespace vellumic
