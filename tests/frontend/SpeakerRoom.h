// Two loudspeakers, the room between them and two microphones, and the pipeline that hears them.
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <vector>

#include "tests/frontend/PipelineRig.h"

namespace vellumic {

inline constexpr std::size_t rate = 16000;  // Hz, of the device and of the loudspeakers
inline constexpr std::size_t packet = 160;  // frames, 10 ms

// Two loudspeakers that play noise in packets, in step with the frames of the stream.
struct Speakers {
  Noise noise{11};
  std::vector<float> left, right;
  std::vector<float> interleaved;
  std::size_t taken = 0;
  std::size_t late = 0;  // samples by which packets come late
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
    return speakers_.left.size() - speakers_.taken >= packet + speakers_.late ? packet : 0;
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

inline LoopbackOpener openerOf(Speakers& speakers) {
  return {.open = [&speakers] { return std::make_unique<SpeakerPackets>(speakers); },
          .onHelperThread = false};
}

struct Room {
  explicit Room(std::size_t echoDelay) : delay(echoDelay), rig(openerOf(speakers)) {
    rig.set(Raw::echoCancellation, 1.0F);
    rig.begin(2);
    rig.pipeline.startLoopback();
  }
  PipelineProbe play(float seconds) {
    for (int n = 0; n < static_cast<int>(seconds * rate); ++n) {
      speakers.tick();
      const float echo = speakers.echo(delay);
      last = rig.run({echo, 0.7F * echo});
      allFinite =
          allFinite && std::ranges::all_of(last, [](float out) { return std::isfinite(out); });
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
  bool allFinite = true;  // every sample that came out
  PipelineRig rig;
};

}  // namespace vellumic
