// A multichannel ring of samples with a read delay.
//
// The delay is a stretch of stored zeros ahead of the write position: what is pushed comes out
// `delay` samples later. There is no overflow check; a push past the read index overwrites.
//
// Threads: one at a time. setCapacity, setChannels and resize allocate; everything else is
// real-time safe.
#pragma once

#include <vector>

#include "platform/Realtime.h"

namespace vellumic {

// One array of samples per channel.
using ChannelArrays = std::vector<std::vector<float>>;

class SampleRing {
 public:
  SampleRing();

  // Sizes below the least are raised to it: capacity 2, channels 1. Each resets.
  void setCapacity(int capacity);
  void setChannels(int channels);
  void resize(int capacity, int channels);

  // Zeroes all samples and puts the indices `delay` apart. Never allocates.
  void reset() noexcept VELLUMIC_NONBLOCKING;

  // d < 0 returns false and changes nothing. Otherwise moves the read index by the difference
  // (before the first reset: resets). A smaller delay than what is queued allows stops at the write
  // index; a larger one reads older samples again and wraps at the capacity.
  bool setDelay(int d) noexcept VELLUMIC_NONBLOCKING;

  // Takes `count` samples of each of the ring's channels, from place `first` of the arrays on;
  // channels without an array get zeros.
  void push(const ChannelArrays& arrays, int count, int first = 0) noexcept VELLUMIC_NONBLOCKING;

  // Into the first channel alone; the others keep their places with what they held.
  void pushFirst(const std::vector<float>& samples, int count) noexcept VELLUMIC_NONBLOCKING;

  // What waits in the first channel waits in all.
  void spreadFirst() noexcept VELLUMIC_NONBLOCKING;

  // False, with nothing copied, if fewer than `count` samples wait. Arrays beyond the ring's
  // channels stay as they were.
  bool pop(ChannelArrays& arrays, int count, int first = 0) noexcept VELLUMIC_NONBLOCKING;

  // As push and pop sample by sample: the arrays come back `delay` samples later.
  void exchange(ChannelArrays& arrays, int count, int first = 0) noexcept VELLUMIC_NONBLOCKING;

  // Zeroes all samples and leaves the indices.
  void clear() noexcept VELLUMIC_NONBLOCKING;

  int available() const noexcept VELLUMIC_NONBLOCKING;
  int capacity() const noexcept { return capacity_; }
  int channels() const noexcept { return static_cast<int>(data_.size()); }
  int delay() const noexcept { return delay_; }

 private:
  int wrapped(int index) const noexcept;
  template <class Copy>
  int forRuns(int from, int count, Copy copy) const noexcept;

  int readIndex_ = 0;
  int writeIndex_ = 0;
  int capacity_ = 100;
  int delay_ = 0;
  bool primed_ = false;
  ChannelArrays data_;
};

}  // namespace vellumic
