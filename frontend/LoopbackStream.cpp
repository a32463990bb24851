#include "frontend/LoopbackStream.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "frontend/BoundedSample.h"

namespace vellumic {

LoopbackStream::LoopbackStream(std::unique_ptr<PacketSource> source, double targetRate)
    : source_(std::move(source)), format_(source_->mixFormat()), targetRate_(targetRate) {
  if (format_.channels < 1 || format_.sampleRate < 1)
    throw std::invalid_argument("loopback: a mix format without channels or rate");
  const int longest = std::min(maxInput, format_.sampleRate);
  input_.resize(static_cast<std::size_t>(longest));
  const int channels = std::min(format_.channels, 2);
  ring_.resize(static_cast<int>(targetRate), channels);
  for (int c = 0; c < channels; ++c) {
    resamplers_.push_back(std::make_unique<resample::CDSPResampler24>(
        format_.sampleRate, targetRate, longest, transitionBand));
    outputs_.emplace_back(maxOutput);
  }
}

LoopbackStream::~LoopbackStream() { source_->stop(); }

LoopbackStream::Outcome LoopbackStream::take(bool keep) noexcept VELLUMIC_NONBLOCKING {
  std::optional<std::uint32_t> size = source_->nextPacketSize();
  if (!size) return {Packets::none, true};
  if (*size == 0) return {Packets::none, false};

  // About what the ring holds. Short packets count as a millisecond, so that a source that always
  // announces one more cannot keep the audio thread.
  std::int64_t budget = format_.sampleRate;
  const std::int64_t leastCharge = std::max(format_.sampleRate / 1000, 1);
  int failures = 0;
  while (size && *size > 0 && budget > 0) {
    Packet packet;
    if (source_->get(packet)) {
      failures = 0;
      budget -= std::max<std::int64_t>(packet.frames, leastCharge);
      if (keep) accept(packet);
      source_->release(packet.frames);
      size = source_->nextPacketSize();
    } else if (++failures == patience) {
      return {Packets::some, true};
    }
  }
  return {Packets::some, !size};
}

void LoopbackStream::accept(const Packet& packet) noexcept {
  int count = 0;
  for (std::size_t c = 0; c < resamplers_.size(); ++c)
    count = resample(packet, static_cast<int>(c));
  push(count);
}

// One channel of the packet into outputs_; returns the number of samples there.
int LoopbackStream::resample(const Packet& packet, int channel) noexcept {
  const auto frames = std::min<std::size_t>(packet.frames, input_.size());
  const auto stride = static_cast<std::size_t>(format_.channels);
  const auto c = static_cast<std::size_t>(channel);
  if (packet.silent || packet.samples == nullptr)
    std::fill_n(input_.begin(), frames, 0.0);
  else
    for (std::size_t i = 0; i < frames; ++i)
      input_[i] = soundSample(packet.samples[i * stride + c]);

  const double* result = nullptr;
  const int made = resamplers_[c]->process(input_.data(), static_cast<int>(frames), result);
  const int kept = std::min(made, maxOutput);
  std::transform(result, result + kept, outputs_[c].begin(),
                 [](double sample) { return static_cast<float>(sample); });
  return kept;
}

// A full ring is one sample short of its capacity: equal indices mean empty.
void LoopbackStream::push(int count) noexcept {
  const int room = ring_.capacity() - 1;
  if (count > room) {
    for (auto& samples : outputs_)
      std::copy(samples.begin() + (count - room), samples.begin() + count, samples.begin());
    count = room;
  }
  const int tooMany = ring_.available() + count - room;
  if (tooMany > 0) ring_.pop(dropped_, tooMany);
  ring_.push(outputs_, count);
}

}  // namespace vellumic
