#include "frontend/SampleRing.h"

#include <algorithm>
#include <cstddef>

namespace vellumic {

SampleRing::SampleRing() : data_(1, std::vector<float>(static_cast<std::size_t>(capacity_))) {}

void SampleRing::setCapacity(int capacity) { resize(capacity, channels()); }

void SampleRing::setChannels(int channels) { resize(capacity_, channels); }

void SampleRing::resize(int capacity, int channels) {
  capacity_ = std::max(capacity, 2);
  data_.assign(static_cast<std::size_t>(std::max(channels, 1)),
               std::vector<float>(static_cast<std::size_t>(capacity_)));
  reset();
}

void SampleRing::reset() noexcept VELLUMIC_NONBLOCKING {
  clear();
  writeIndex_ = 0;
  readIndex_ = wrapped(-(delay_ % capacity_));
  primed_ = true;
}

bool SampleRing::setDelay(int d) noexcept VELLUMIC_NONBLOCKING {
  if (d < 0) return false;
  const int forward = delay_ - d;
  delay_ = d;
  if (primed_)
    readIndex_ = wrapped(readIndex_ + std::min(forward, available()) % capacity_);
  else
    reset();
  return true;
}

// Calls copy(index, offset, length) for each unbroken stretch of `count` samples from index `from`
// on; returns the index behind them.
template <class Copy>
int SampleRing::forRuns(int from, int count, Copy copy) const noexcept {
  for (int offset = 0; offset < count;) {
    const int length = std::min(count - offset, capacity_ - from);
    copy(from, offset, length);
    offset += length;
    from += length;
    if (from == capacity_) from = 0;
  }
  return from;
}

void SampleRing::push(const ChannelArrays& arrays, int count,
                      int first) noexcept VELLUMIC_NONBLOCKING {
  writeIndex_ = forRuns(writeIndex_, count, [&](int index, int offset, int length) {
    for (std::size_t c = 0; c < data_.size(); ++c) {
      float* to = data_[c].data() + index;
      if (c < arrays.size())
        std::copy_n(arrays[c].data() + first + offset, length, to);
      else
        std::fill_n(to, length, 0.0F);
    }
  });
}

void SampleRing::pushFirst(const std::vector<float>& samples,
                           int count) noexcept VELLUMIC_NONBLOCKING {
  writeIndex_ = forRuns(writeIndex_, count, [&](int index, int offset, int length) {
    std::copy_n(samples.data() + offset, length, data_.front().data() + index);
  });
}

void SampleRing::spreadFirst() noexcept VELLUMIC_NONBLOCKING {
  forRuns(readIndex_, available(), [&](int index, int, int length) {
    for (std::size_t c = 1; c < data_.size(); ++c)
      std::copy_n(data_.front().data() + index, length, data_[c].data() + index);
  });
}

bool SampleRing::pop(ChannelArrays& arrays, int count, int first) noexcept VELLUMIC_NONBLOCKING {
  if (available() < count) return false;
  const std::size_t channels = std::min(data_.size(), arrays.size());
  readIndex_ = forRuns(readIndex_, count, [&](int index, int offset, int length) {
    for (std::size_t c = 0; c < channels; ++c)
      std::copy_n(data_[c].data() + index, length, arrays[c].data() + first + offset);
  });
  return true;
}

void SampleRing::exchange(ChannelArrays& arrays, int count,
                          int first) noexcept VELLUMIC_NONBLOCKING {
  for (int done = 0; done < count;) {
    // A push that reaches the read index empties the ring: never run past that.
    const int length = std::clamp(capacity_ - 1 - available(), 1, count - done);
    push(arrays, length, first + done);
    pop(arrays, length, first + done);
    done += length;
  }
}

void SampleRing::clear() noexcept VELLUMIC_NONBLOCKING {
  for (auto& channel : data_) std::fill(channel.begin(), channel.end(), 0.0F);
}

int SampleRing::available() const noexcept VELLUMIC_NONBLOCKING {
  const int distance = writeIndex_ - readIndex_;
  return distance < 0 ? distance + capacity_ : distance;
}

// `index` within one capacity of the ring.
int SampleRing::wrapped(int index) const noexcept {
  if (index < 0) return index + capacity_;
  return index >= capacity_ ? index - capacity_ : index;
}

}  // namespace vellumic
