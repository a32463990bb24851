#include "resample/CDSPBlockConvolver.h"

#include <algorithm>
#include <utility>

namespace vellumic::resample {
namespace {

// sum (+)= signal * kernel over `points` complex numbers, real parts first.
template <bool accumulate>
void multiply(const double* __restrict signal, const double* __restrict kernel,
              double* __restrict sum, int points) noexcept {
  for (int n = 0; n < points; ++n) {
    const double xR = signal[n], xI = signal[n + points];
    const double hR = kernel[n], hI = kernel[n + points];
    const double productR = xR * hR - xI * hI;
    const double productI = xR * hI + xI * hR;
    sum[n] = accumulate ? sum[n] + productR : productR;
    sum[n + points] = accumulate ? sum[n + points] + productI : productI;
  }
}

}  // namespace

CDSPBlockConvolver::CDSPBlockConvolver(std::shared_ptr<const CDSPFIRFilter> filter, int up,
                                       int down, int maxInput)
    : filter_(std::move(filter)),
      upFactor_(up),
      downFactor_(down),
      blockLength_(filter_->blockLength()) {
  const auto block = static_cast<std::size_t>(blockLength_);
  const auto inputBlock = block * static_cast<std::size_t>(down);
  previous_.resize(inputBlock);
  current_.resize(inputBlock);
  spectra_.resize(static_cast<std::size_t>(filter_->blocks()) * inputBlock * 2);
  sum_.resize(2 * block);
  block_.resize(block * static_cast<std::size_t>(up));
  result_.resize(static_cast<std::size_t>(maxOutputLength(maxInput)));
  clear();
}

// The kernel's middle in outputs; a lowered rate keeps the last output of every frame.
int CDSPBlockConvolver::delayOutputs() const noexcept { return filter_->delay() / downFactor_; }

int CDSPBlockConvolver::inputBeforeOutput(int nextInput) const noexcept {
  const int frame = (nextInput + delayOutputs()) / upFactor_;
  return (frame + blockLength_) * downFactor_ - 1;
}

int CDSPBlockConvolver::maxOutputLength(int maxInput) const noexcept {
  return (maxInput * upFactor_ + downFactor_ - 1) / downFactor_;
}

void CDSPBlockConvolver::clear() noexcept {
  for (auto* values : {&previous_, &current_, &spectra_, &block_}) std::ranges::fill(*values, 0.0);
  newest_ = 0;
  inputBranch_ = 0;
  frame_ = 0;
  latencyLeft_ = delayOutputs() + (blockLength_ - 1) * upFactor_;
}

int CDSPBlockConvolver::process(const double* input, int count,
                                const double*& output) noexcept VELLUMIC_NONBLOCKING {
  double* result = result_.data();
  output = result;
  for (const double* end = input + count; input != end; ++input) {
    current_[static_cast<std::size_t>(inputBranch_ * blockLength_ + frame_)] = *input;
    if (++inputBranch_ < downFactor_) continue;
    inputBranch_ = 0;
    if (++frame_ == blockLength_) convolve();
    const double* due = block_.data() + frame_;
    const int dropped = std::min(upFactor_, latencyLeft_);
    latencyLeft_ -= dropped;
    for (int n = dropped; n < upFactor_; ++n) *result++ = due[n * blockLength_];
  }
  return static_cast<int>(result - output);
}

void CDSPBlockConvolver::convolve() noexcept {
  const CDSPRealFFT& transform = filter_->transform();
  const int blocks = filter_->blocks();
  const int spectrumLength = 2 * blockLength_;
  newest_ = newest_ == 0 ? blocks - 1 : newest_ - 1;
  for (int in = 0; in < downFactor_; ++in) {
    transform.forward(previous_.data() + in * blockLength_, current_.data() + in * blockLength_,
                      spectra_.data() + (in * blocks + newest_) * spectrumLength);
  }
  previous_.swap(current_);
  frame_ = 0;

  for (int out = 0; out < upFactor_; ++out) {
    for (int in = 0; in < downFactor_; ++in) {
      // The last input of a frame meets the first tap: a lowered rate keeps the last outputs.
      const int branch = out + downFactor_ - 1 - in;
      const double* ring = spectra_.data() + in * blocks * spectrumLength;
      for (int block = 0; block < blocks; ++block) {
        const int place = newest_ + block < blocks ? newest_ + block : newest_ + block - blocks;
        const auto product = in == 0 && block == 0 ? multiply<false> : multiply<true>;
        product(ring + place * spectrumLength, filter_->spectrum(branch, block), sum_.data(),
                blockLength_);
      }
    }
    transform.inverse(sum_.data(), block_.data() + out * blockLength_);
  }
}

}  // namespace vellumic::resample
