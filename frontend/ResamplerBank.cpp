#include "frontend/ResamplerBank.h"

#include <algorithm>
#include <cstddef>

namespace vellumic {

ResamplerBank::ResamplerBank() { rebuild(); }

ResamplerBank::ResamplerBank(int channels, double sourceRate, double destinationRate)
    : channels_(std::clamp(channels, 1, maxChannels)),
      sourceRate_(sourceRate),
      destinationRate_(destinationRate) {
  rebuild();
}

void ResamplerBank::setChannels(int channels) {
  if (channels < 1 || channels > maxChannels) return;
  channels_ = channels;
  rebuild();
}

void ResamplerBank::setRates(double sourceRate, double destinationRate) {
  if (sourceRate == sourceRate_ && destinationRate == destinationRate_) return;
  sourceRate_ = sourceRate;
  destinationRate_ = destinationRate;
  rebuild();
}

void ResamplerBank::rebuild() {
  resamplers_.clear();
  for (int c = 0; c < channels_; ++c)
    resamplers_.push_back(std::make_unique<resample::CDSPResampler24>(sourceRate_, destinationRate_,
                                                                      1, transitionBand));
  const int room = std::max(resamplers_.front()->maxOutputLength(1), leastOutput);
  outputs_.assign(static_cast<std::size_t>(channels_),
                  std::vector<float>(static_cast<std::size_t>(room)));
  ring_.resize(static_cast<int>(destinationRate_), channels_);
}

bool ResamplerBank::pushFrame(std::span<const float> samples) noexcept VELLUMIC_NONBLOCKING {
  int count = 0;
  for (std::size_t c = 0; c < resamplers_.size(); ++c) {
    const double input = c < samples.size() ? static_cast<double>(samples[c]) : 0.0;
    const double* output = nullptr;
    count = resamplers_[c]->process(&input, 1, output);
    std::transform(output, output + count, outputs_[c].begin(),
                   [](double sample) { return static_cast<float>(sample); });
  }
  if (count < 1) return false;
  ring_.push(outputs_, count);
  return true;
}

bool ResamplerBank::pop(ChannelArrays& target, int count) noexcept VELLUMIC_NONBLOCKING {
  return ring_.pop(target, count);
}

int ResamplerBank::framesBeforeOutput() const noexcept {
  return resamplers_.front()->inputBeforeOutput(0);
}

}  // namespace vellumic
