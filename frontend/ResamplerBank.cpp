#include "frontend/ResamplerBank.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "frontend/BoundedSample.h"

namespace vellumic {

ResamplerBank::ResamplerBank() { rebuild(); }

ResamplerBank::ResamplerBank(int channels, double sourceRate, double destinationRate, int runLength)
    : channels_(std::clamp(channels, 1, maxChannels)),
      sourceRate_(sourceRate),
      destinationRate_(destinationRate),
      runLength_(std::clamp(runLength, 1, longestRun)) {
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
                                                                      runLength_, transitionBand));
  const int room = resamplers_.front()->maxOutputLength(runLength_);
  outputs_.assign(static_cast<std::size_t>(channels_),
                  std::vector<float>(static_cast<std::size_t>(room)));
  ring_.resize(static_cast<int>(destinationRate_), channels_);
}

int ResamplerBank::push(const SampleView& input, int count,
                        std::span<int> made) noexcept VELLUMIC_NONBLOCKING {
  made = made.first(static_cast<std::size_t>(count));
  std::ranges::fill(made, 1);
  resamplers_.front()->pace(made);
  for (std::size_t c = 0; c < (alike_ ? 1 : resamplers_.size()); ++c) {
    take(input, c, count);
    convert(c, count);
  }
  const int total = std::accumulate(made.begin(), made.end(), 0);
  if (alike_)
    ring_.pushFirst(outputs_.front(), total);
  else
    ring_.push(outputs_, total);
  return total;
}

void ResamplerBank::setAlike(bool alike) noexcept VELLUMIC_NONBLOCKING {
  if (alike_ && !alike) {
    for (std::size_t c = 1; c < resamplers_.size(); ++c) resamplers_[c]->follow(*resamplers_[0]);
    ring_.spreadFirst();
  }
  alike_ = alike;
}

void ResamplerBank::take(const SampleView& input, std::size_t channel, int count) noexcept {
  const auto c = static_cast<std::ptrdiff_t>(channel);
  if (c >= input.channels) {
    input_.fill(0.0);
    return;
  }
  const float* samples = input.samples + c * input.fromChannel;
  for (std::ptrdiff_t n = 0; n < count; ++n)
    input_[static_cast<std::size_t>(n)] = soundSample(samples[n * input.fromSample]);
}

void ResamplerBank::convert(std::size_t channel, int count) noexcept {
  const double* output = nullptr;
  const int made = resamplers_[channel]->process(input_.data(), count, output);
  std::transform(output, output + made, outputs_[channel].begin(),
                 [](double sample) { return static_cast<float>(sample); });
}

bool ResamplerBank::pop(ChannelArrays& target, int count, int first) noexcept VELLUMIC_NONBLOCKING {
  return ring_.pop(target, count, first);
}

int ResamplerBank::framesBeforeOutput() const noexcept {
  return resamplers_.front()->inputBeforeOutput(0);
}

}  // namespace vellumic
