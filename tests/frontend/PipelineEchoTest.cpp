// The echo stage inside the pipeline: alignment, cancelling, and what interrupts them.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "tests/frontend/PipelineRig.h"

namespace vellumic {
namespace {

constexpr std::size_t rate = 16000;  // Hz, of the device and of the loudspeakers
constexpr std::size_t packet = 160;  // frames, 10 ms

// Two loudspeakers that play noise in packets, in step with the frames of the stream.
struct Speakers {
  Noise noise{11};
  std::vector<float> left, right;
  std::vector<float> interleaved;
  std::size_t taken = 0;
  bool playing = true;

  void tick() {
    left.push_back(playing ? noise() : 0.0F);
    right.push_back(playing ? noise() : 0.0F);
    if (!playing) taken = left.size();
    if (left.size() - taken > rate) taken += packet;  // the device keeps one second
  }
  // What a microphone hears `delay` samples later.
  float echo(std::size_t delay) const {
    if (left.size() <= delay + 40) return 0.0F;
    const std::size_t n = left.size() - 1 - delay;
    return 0.6F * left[n] - 0.3F * left[n - 17] + 0.4F * right[n - 5] + 0.2F * right[n - 40];
  }
};

class SpeakerPackets : public PacketSource {
 public:
  explicit SpeakerPackets(Speakers& speakers) : speakers_(speakers) {
    speakers_.interleaved.resize(2 * packet);
  }
  MixFormat mixFormat() const noexcept override { return {.channels = 2, .sampleRate = rate}; }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    return speakers_.left.size() - speakers_.taken >= packet ? packet : 0;
  }
  bool get(Packet& out) noexcept override {
    for (std::size_t i = 0; i < packet; ++i) {
      speakers_.interleaved[2 * i] = speakers_.left[speakers_.taken + i];
      speakers_.interleaved[2 * i + 1] = speakers_.right[speakers_.taken + i];
    }
    out = {.samples = speakers_.interleaved.data(), .frames = packet, .silent = false};
    return true;
  }
  void release(std::uint32_t frames) noexcept override { speakers_.taken += frames; }

 private:
  Speakers& speakers_;
};

struct Room {
  explicit Room(std::size_t echoDelay)
      : delay(echoDelay),
        rig({.open = [this] { return std::make_unique<SpeakerPackets>(speakers); },
             .onHelperThread = false}) {
    rig.set(Raw::echoCancellation, 1.0F);
    rig.begin(2);
    rig.pipeline.startLoopback();
  }
  PipelineProbe play(float seconds) {
    for (int n = 0; n < static_cast<int>(seconds * rate); ++n) {
      speakers.tick();
      const float echo = speakers.echo(delay);
      last = rig.run({echo, 0.7F * echo});
    }
    return rig.pipeline.probe();
  }
  // Echo return loss enhancement in dB over the next second.
  float enhancement() {
    float before = 0.0F, after = 0.0F;
    for (int block = 0; block < 15; ++block) {
      const PipelineProbe probe = play(0.064F);
      before += probe.microphoneEnergy;
      after += probe.residualEnergy;
    }
    return 10.0F * std::log10(before / std::max(after, 1e-20F));
  }

  std::size_t delay;  // samples
  Speakers speakers;
  PipelineRig::Frame last{};
  PipelineRig rig;
};

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
