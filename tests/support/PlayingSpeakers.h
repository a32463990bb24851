// A machine whose two loudspeakers play soft noise at 48 kHz in packets of 10 ms, and what
// microphones of any rate and number hear of it: both loudspeakers late beside a little noise of
// their own. The loopback's packets keep step with the calls of the stream.
//
//   LoopbackOpener opener{.open = [&] { return speakers.packets(); }, .onHelperThread = false};
//   speakers.hear(input, rate, channels);  // before each call of 10 ms
//
// Thread: hear() between the calls, packets in them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "frontend/PacketSource.h"

namespace vellumic {

class PlayingSpeakers {
 public:
  bool playing = true, lost = false;  // lost: the device has failed
  std::size_t echoDelay = 960;        // frames, below 15900
  std::size_t late = 0;               // packets that the loopback keeps back

  // The device's stream, on which up to a second waits; this object outlives it.
  std::unique_ptr<PacketSource> packets() { return std::make_unique<Stream>(*this); }

  // The next 10 ms, interleaved.
  void hear(std::vector<float>& microphones, std::uint32_t rate, std::uint32_t channels) {
    std::vector<float>& packet = packets_[written_ % mostWaiting];
    const bool full = written_ - read_ == mostWaiting;
    const std::size_t first = frames_ + pastFrames - echoDelay;
    for (std::size_t n = 0; n < packetFrames; ++n)
      for (std::size_t c : {0U, 1U}) {
        const float sample = playing ? smooth(c, white_(random_)) : 0.0F;
        past_[2 * ((frames_ + n) % pastFrames) + c] = sample;
        if (!full) packet[2 * n + c] = sample;
      }
    frames_ += packetFrames;
    if (playing && !full) ++written_;
    microphones.resize(rate / 100 * channels);
    for (std::size_t n = 0; n < rate / 100; ++n) {
      const std::size_t at = (first + n * sampleRate / rate) % pastFrames;
      const float echo = 0.5F * past_[2 * at] + 0.3F * past_[2 * at + 1];
      for (std::size_t c = 0; c < channels; ++c)
        microphones[n * channels + c] = echo + 0.01F * white_(random_);
    }
  }

 private:
  static constexpr std::uint32_t sampleRate = 48000, packetFrames = 480, mostWaiting = 100;
  static constexpr std::size_t pastFrames = 16384;

  class Stream final : public PacketSource {
   public:
    explicit Stream(PlayingSpeakers& speakers) : speakers_(speakers) {}
    MixFormat mixFormat() const noexcept override {
      return {.channels = 2, .sampleRate = sampleRate};
    }
    bool start() noexcept override { return true; }
    void stop() noexcept override {}
    std::optional<std::uint32_t> nextPacketSize() noexcept override {
      if (speakers_.lost) return std::nullopt;
      return speakers_.waits() ? packetFrames : 0U;
    }
    bool get(Packet& packet) noexcept override {
      if (speakers_.lost || !speakers_.waits()) return false;
      packet = {.samples = speakers_.packets_[speakers_.read_ % mostWaiting].data(),
                .frames = packetFrames,
                .silent = false};
      return true;
    }
    void release(std::uint32_t) noexcept override { ++speakers_.read_; }

   private:
    PlayingSpeakers& speakers_;
  };

  bool waits() const { return read_ + late < written_; }

  // Three low-passes at 2 kHz: little is left above 5 kHz, so that microphones of lower rates hear
  // what the references hold.
  float smooth(std::size_t channel, float sample) {
    for (float& mean : means_[channel]) sample = mean += 0.25F * (1.7F * sample - mean);
    return sample;
  }

  std::array<std::array<float, 3>, 2> means_{};
  std::vector<std::vector<float>> packets_ =
      std::vector<std::vector<float>>(mostWaiting, std::vector<float>(2 * packetFrames));
  std::size_t written_ = 0, read_ = 0;  // packets
  std::size_t frames_ = 0;              // played
  std::vector<float> past_ = std::vector<float>(2 * pastFrames);
  std::minstd_rand random_{7};
  std::uniform_real_distribution<float> white_{-0.1F, 0.1F};
};

}  // namespace vellumic
