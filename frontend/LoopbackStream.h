// One opened packet source with its resamplers and the ring that the blocks are taken from.
//
// The first two channels of the device; a mono device has one. A packet is cut behind 5000 frames,
// or behind a second where that is less, so that a device of a few hertz brings no more than the
// ring holds and takes no more memory than any; so is resampler output beyond maxOutput. The ring
// holds one second at the target rate; what does not fit drives out the oldest samples. Samples
// that are not finite count as 0.
// Threads: construction, start and destruction off the audio path; the rest is real-time.
#pragma once

#include <memory>
#include <vector>

#include "frontend/PacketSource.h"
#include "frontend/SampleRing.h"
#include "platform/Realtime.h"
#include "resample/CDSPResampler24.h"

namespace vellumic {

class LoopbackStream {
 public:
  // Throws std::invalid_argument for a format without channels or rate.
  LoopbackStream(std::unique_ptr<PacketSource> source, double targetRate);  // Hz, 1 to 192000
  ~LoopbackStream();
  LoopbackStream(const LoopbackStream&) = delete;
  LoopbackStream& operator=(const LoopbackStream&) = delete;

  bool start() noexcept { return source_->start(); }
  double targetRate() const noexcept { return targetRate_; }

  enum class Packets { none, some };
  struct Outcome {
    Packets waiting;  // at entry
    bool failed;      // the device gives no answer, or no packet that it announced
  };
  // Move waiting packets into the ring, or drop them. At most about a second of them.
  Outcome drain() noexcept VELLUMIC_NONBLOCKING { return take(true); }
  Outcome discard() noexcept VELLUMIC_NONBLOCKING { return take(false); }

  // `count` samples into each row that the device has a channel for; false if too few wait.
  bool pop(ChannelArrays& target, int count) noexcept VELLUMIC_NONBLOCKING {
    return ring_.pop(target, count);
  }
  void setDelay(int samples) noexcept VELLUMIC_NONBLOCKING { ring_.setDelay(samples); }
  void restartRing() noexcept VELLUMIC_NONBLOCKING { ring_.reset(); }  // only the delay is queued

  LoopbackStream* nextRetired = nullptr;  // link of a list of streams that wait to be freed

 private:
  static constexpr double transitionBand = 10.0;  // percent
  static constexpr int maxInput = 5000;           // frames of a packet; a second's where less
  static constexpr int maxOutput = 5000;          // samples per packet
  static constexpr int patience = 3;              // failed packets in a row

  Outcome take(bool keep) noexcept VELLUMIC_NONBLOCKING;
  void accept(const Packet& packet) noexcept;
  int resample(const Packet& packet, int channel) noexcept;
  void push(int count) noexcept;

  std::unique_ptr<PacketSource> source_;
  MixFormat format_;
  double targetRate_;  // Hz
  SampleRing ring_;
  std::vector<std::unique_ptr<resample::CDSPResampler24>> resamplers_;
  std::vector<double> input_;  // frames of the longest packet
  ChannelArrays outputs_;      // maxOutput each
  ChannelArrays dropped_;      // no rows: the oldest samples of a full ring go nowhere
};

}  // namespace vellumic
