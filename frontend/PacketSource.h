// Where the loopback reference comes from: packets of interleaved float samples of what the
// machine plays, as they become available. On Windows a capture client of the render endpoint
// stands behind it, offline a file, in tests a script.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Realtime.h"

namespace vellumic {

struct MixFormat {
  int channels = 0;    // interleaved 32-bit floats
  int sampleRate = 0;  // Hz
};

struct Packet {
  const float* samples = nullptr;  // frames * channels; valid until release
  std::uint32_t frames = 0;
  bool silent = false;  // the samples are to be read as zeros
};

// Construction and destruction happen off the audio path; the packet calls come from the
// real-time thread and must not block.
class PacketSource {
 public:
  virtual ~PacketSource() = default;

  virtual MixFormat mixFormat() const noexcept = 0;
  virtual bool start() noexcept = 0;  // once, after opening, before the first packet call
  virtual void stop() noexcept = 0;   // before destruction

  // Frames of the next packet, 0 if none waits, nothing when the device has failed.
  virtual std::optional<std::uint32_t> nextPacketSize() noexcept VELLUMIC_NONBLOCKING = 0;
  virtual bool get(Packet& packet) noexcept
      VELLUMIC_NONBLOCKING = 0;  // on false there is nothing to release
  virtual void release(std::uint32_t frames) noexcept VELLUMIC_NONBLOCKING = 0;
};

// How a LoopbackSource gets its packets.
struct LoopbackOpener {
  // Null when nothing can be opened. May throw; that counts as null. On a helper thread it may be
  // under way, and the source that it makes may be destroyed, after the LoopbackSource has gone.
  std::function<std::unique_ptr<PacketSource>()> open;
  // Opening a device can take seconds: then it runs on a short-lived thread of its own. Offline
  // sources open inside start(), so that every run gives the same result.
  bool onHelperThread = true;
  // What waits at the first drain() is as old as the opening, and is dropped. An offline source
  // that stands in for a device has it too, to give the samples that the device would.
  bool dropsBacklog = onHelperThread;
  // How long stop() waits for an opening under way; one that takes longer is left to end alone.
  std::chrono::milliseconds patience{2000};
  // Called when that happens: the helper's code must stay in memory from then on. May be empty.
  std::function<void()> onLeftBehind{};
};

}  // namespace vellumic
