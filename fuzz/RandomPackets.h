// Loudspeakers whose packets come as a fuzzer's input says: sizes, silence, failures.
#pragma once

#include <algorithm>
#include <array>

#include "frontend/PacketSource.h"

namespace vellumic::fuzz {

struct Loudspeakers {
  MixFormat format{.channels = 2, .sampleRate = 48000};
  int waiting = 0;           // packets
  std::uint32_t frames = 0;  // of each packet
  bool silent = false, failing = false, withoutSamples = false;
  float level = 0.1F;
};

class RandomPackets final : public PacketSource {
 public:
  explicit RandomPackets(Loudspeakers& speakers) : speakers_(speakers) {}

  MixFormat mixFormat() const noexcept override { return speakers_.format; }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    if (speakers_.failing) return std::nullopt;
    return speakers_.waiting > 0 ? std::max(speakers_.frames, 1U) : 0U;
  }
  bool get(Packet& packet) noexcept override {
    if (speakers_.failing || speakers_.waiting <= 0) return false;
    const auto room = samples_.size() / static_cast<std::size_t>(speakers_.format.channels);
    packet.frames = std::min(speakers_.frames, static_cast<std::uint32_t>(room));
    for (float& sample : samples_) sample = (sample_ = -sample_ * 0.999F + 0.01F) * speakers_.level;
    packet.samples = speakers_.withoutSamples ? nullptr : samples_.data();
    packet.silent = speakers_.silent;
    return true;
  }
  void release(std::uint32_t) noexcept override { --speakers_.waiting; }

 private:
  Loudspeakers& speakers_;
  std::array<float, 4096> samples_{};
  float sample_ = 1.0F;
};

}  // namespace vellumic::fuzz
