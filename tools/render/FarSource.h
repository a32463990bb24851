// What the loudspeakers play, from a sound file, as packets of 10 ms that become available in step
// with the rendered stream. No packet comes past the file's end or while nothing plays.
#pragma once

#include <memory>
#include <vector>

#include "frontend/PacketSource.h"
#include "tools/WaveFile.h"
#include "tools/render/RenderJob.h"

namespace vellumic::tools {

// The stream's time in seconds; advanced by the renderer before each call. One thread.
struct StreamClock {
  double seconds = 0.0;
};

class FarSource final : public PacketSource {
 public:
  // All three must outlive the source.
  FarSource(const WaveData& far, const std::vector<TimeSpan>& gaps, const StreamClock& clock);

  MixFormat mixFormat() const noexcept override;
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override;
  bool get(Packet& packet) noexcept override;
  void release(std::uint32_t frames) noexcept override;

 private:
  bool inGap(double seconds) const noexcept;
  double secondsAt(std::size_t frame) const noexcept;

  const WaveData& far_;
  const std::vector<TimeSpan>& gaps_;
  const StreamClock& clock_;
  std::size_t packetFrames_;
  std::size_t position_ = 0;  // frame
};

// Opens a FarSource on the spot, so that every run gives the same result; nothing without a file.
LoopbackOpener farOpener(const RenderJob& job, const StreamClock& clock);

}  // namespace vellumic::tools
