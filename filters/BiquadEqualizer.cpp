#include "filters/BiquadEqualizer.h"

#include <algorithm>
#include <cmath>

namespace vellumic {

void BiquadEqualizer::setChannelCount(unsigned channels) {
  const float half = static_cast<float>(std::min(channels, maximumChannels)) * 0.5F;
  pairs_.resize(static_cast<std::size_t>(std::ceil(half)));
}

VELLUMIC_RT_CODE void BiquadEqualizer::adopt(const EqualizerRecord& record) noexcept
    VELLUMIC_NONBLOCKING {
  record_ = record;
  for (BiquadChannelPair& pair : pairs_) pair.adopt(record.bands);
}

void BiquadEqualizer::applyParameters(const EqualizerSettings& settings,
                                      float sampleRate) noexcept {
  adopt(EqualizerRecord::design(settings, sampleRate, record_));
}

VELLUMIC_RT_CODE void BiquadEqualizer::process(float* frame) noexcept VELLUMIC_NONBLOCKING {
  if (!record_.active) return;
  for (BiquadChannelPair& pair : pairs_) {
    pair.process(frame[0], frame[1]);
    frame += 2;
  }
}

VELLUMIC_RT_CODE void BiquadEqualizer::processFrames(
    float* samples, std::size_t stride, std::size_t frames) noexcept VELLUMIC_NONBLOCKING {
  if (!record_.active) return;
  for (BiquadChannelPair& pair : pairs_) {
    pair.processFrames(samples, stride, frames);
    samples += 2;
  }
}

VELLUMIC_RT_CODE void BiquadEqualizer::reset() noexcept VELLUMIC_NONBLOCKING {
  for (BiquadChannelPair& pair : pairs_) pair.reset();
}

VELLUMIC_RT_CODE void BiquadEqualizer::restartBroken() noexcept VELLUMIC_NONBLOCKING {
  if (!record_.active) return;
  for (BiquadChannelPair& pair : pairs_) pair.restartBroken();
}

}  // namespace vellumic
