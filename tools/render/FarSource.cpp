#include "tools/render/FarSource.h"

#include <algorithm>

namespace vellumic::tools {
namespace {

constexpr double packetSeconds = 0.01;

}  // namespace

FarSource::FarSource(const WaveData& far, const std::vector<TimeSpan>& gaps,
                     const StreamClock& clock)
    : far_(far),
      gaps_(gaps),
      clock_(clock),
      packetFrames_(std::max<std::size_t>(
          1, static_cast<std::size_t>(far.format.sampleRate * packetSeconds))) {}

MixFormat FarSource::mixFormat() const noexcept {
  return {.channels = far_.format.channels, .sampleRate = far_.format.sampleRate};
}

double FarSource::secondsAt(std::size_t frame) const noexcept {
  return static_cast<double>(frame) / far_.format.sampleRate;
}

bool FarSource::inGap(double seconds) const noexcept {
  return std::ranges::any_of(gaps_, [&](const TimeSpan& gap) {
    return seconds >= gap.start && seconds < gap.start + gap.length;
  });
}

std::optional<std::uint32_t> FarSource::nextPacketSize() noexcept {
  constexpr double rounding = 1e-9;
  const std::size_t end = far_.frames();
  while (position_ < end) {
    const std::size_t frames = std::min(packetFrames_, end - position_);
    if (secondsAt(position_ + frames) > clock_.seconds + rounding) return 0U;
    if (!inGap(secondsAt(position_))) return static_cast<std::uint32_t>(frames);
    position_ += frames;  // the file goes on unheard
  }
  return 0U;
}

bool FarSource::get(Packet& packet) noexcept {
  const std::optional<std::uint32_t> frames = nextPacketSize();
  if (!frames || *frames == 0) return false;
  packet = {
      .samples = far_.samples.data() + position_ * static_cast<std::size_t>(far_.format.channels),
      .frames = *frames,
      .silent = false};
  return true;
}

void FarSource::release(std::uint32_t frames) noexcept {
  position_ = std::min(far_.frames(), position_ + frames);
}

LoopbackOpener farOpener(const RenderJob& job, const StreamClock& clock) {
  LoopbackOpener opener;
  opener.onHelperThread = false;
  opener.dropsBacklog = true;  // as the library's loopback does
  opener.open = [&job, &clock]() -> std::unique_ptr<PacketSource> {
    if (!job.far) return nullptr;
    return std::make_unique<FarSource>(*job.far, job.farGaps, clock);
  };
  return opener;
}

}  // namespace vellumic::tools
