// The ten-band equaliser of a multichannel stream: one BiquadChannelPair per two channels, all
// with the same bands; the even channel of a pair has the first side's, the odd one the second's.
//
// Threads: process(), reset() and adopt() belong to the real-time thread, or to a thread that holds
// the stream still. setChannelCount() allocates: while the stream stands only.
#pragma once

#include <cstddef>
#include <vector>

#include "filters/BiquadChannelPair.h"
#include "filters/EqualizerRecord.h"
#include "platform/Realtime.h"

namespace vellumic {

class BiquadEqualizer {
 public:
  static constexpr unsigned maximumChannels = 12;  // room in a frame

  // ceil(channels / 2) pairs, at most maximumChannels / 2. Kept pairs keep their memories; new ones
  // have default bands, all off, until the next adopt().
  void setChannelCount(unsigned channels);

  // Takes the designs into every pair and leaves the memories alone.
  void adopt(const EqualizerRecord& record) noexcept VELLUMIC_NONBLOCKING;

  // Design and adopt in one step, for a stream that stands still. Rate in Hz.
  void applyParameters(const EqualizerSettings& settings, float sampleRate) noexcept;

  // Filters one interleaved frame in place; nothing unless active. With an odd channel count the
  // frame has one more sample of room, which is filtered too.
  void process(float* frame) noexcept VELLUMIC_NONBLOCKING;

  // The same for `frames` frames that lie `stride` floats apart, all pairs within the stride (or
  // the last frame's room); about three times as fast per frame in blocks of 30 frames and more.
  void processFrames(float* samples, std::size_t stride,
                     std::size_t frames) noexcept VELLUMIC_NONBLOCKING;

  // Zeroes all memories.
  void reset() noexcept VELLUMIC_NONBLOCKING;

  // For the end of a call: what one bad sample left behind must not silence a channel for good.
  // What was heard stays as it is; sections whose memories are not finite start over.
  void restartBroken() noexcept VELLUMIC_NONBLOCKING;

  bool active() const noexcept { return record_.active; }
  const std::vector<BiquadChannelPair>& pairs() const noexcept { return pairs_; }

 private:
  std::vector<BiquadChannelPair> pairs_{1};
  EqualizerRecord record_;  // the latest adopted
};

}  // namespace vellumic
