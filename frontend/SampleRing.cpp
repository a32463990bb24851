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

void SampleRing::push(const ChannelArrays& arrays, int count) noexcept VELLUMIC_NONBLOCKING {
  for (std::size_t c = 0; c < data_.size(); ++c) {
    int index = writeIndex_;
    for (int i = 0; i < count; ++i) {
      data_[c][static_cast<std::size_t>(index)] =
          c < arrays.size() ? arrays[c][static_cast<std::size_t>(i)] : 0.0F;
      if (++index == capacity_) index = 0;
    }
  }
  writeIndex_ = (writeIndex_ + std::max(count, 0)) % capacity_;
}

bool SampleRing::pop(ChannelArrays& arrays, int count) noexcept VELLUMIC_NONBLOCKING {
  if (available() < count) return false;
  const std::size_t channels = std::min(data_.size(), arrays.size());
  for (std::size_t c = 0; c < channels; ++c) {
    int index = readIndex_;
    for (int i = 0; i < count; ++i) {
      arrays[c][static_cast<std::size_t>(i)] = data_[c][static_cast<std::size_t>(index)];
      if (++index == capacity_) index = 0;
    }
  }
  readIndex_ = (readIndex_ + std::max(count, 0)) % capacity_;
  return true;
}

void SampleRing::clear() noexcept VELLUMIC_NONBLOCKING {
  for (auto& channel : data_) std::fill(channel.begin(), channel.end(), 0.0F);
}

int SampleRing::available() const noexcept {
  const int distance = writeIndex_ - readIndex_;
  return distance < 0 ? distance + capacity_ : distance;
}

// `index` within one capacity of the ring.
int SampleRing::wrapped(int index) const noexcept {
  if (index < 0) return index + capacity_;
  return index >= capacity_ ? index - capacity_ : index;
}

}  // namespace vellumic
