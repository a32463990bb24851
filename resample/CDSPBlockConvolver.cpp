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
      blockLength_(filter_->blockLength()),
      blockInput_(blockLength_ * down) {
  const auto block = static_cast<std::size_t>(blockLength_);
  const auto inputBlock = static_cast<std::size_t>(blockInput_);
  previous_.resize(inputBlock);
  current_.resize(inputBlock);
  spectra_.resize(static_cast<std::size_t>(filter_->blocks()) * inputBlock * 2);
  sum_.resize(2 * block);
  branch_.resize(block);
  block_.resize(block * static_cast<std::size_t>(up));
  result_.resize(static_cast<std::size_t>(maxOutputLength(maxInput)));
  clear();
}

// The kernel's middle in outputs. A halving keeps the odd outputs, and the middle is odd.
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
  inputPosition_ = 0;
  outputPosition_ = upFactor_;
  latencyLeft_ = delayOutputs() + (blockLength_ - 1) * upFactor_;
}

int CDSPBlockConvolver::process(const double* input, int count,
                                const double*& output) noexcept VELLUMIC_NONBLOCKING {
  int produced = 0;
  output = result_.data();
  while (count > 0) {
    // The input that fills the block goes by itself: its output is the first of the new block.
    const int inOldBlock = blockInput_ - 1 - inputPosition_;
    const int part = inOldBlock > 0 ? std::min(count, inOldBlock) : 1;
    const int due = upFactor_ * ((inputPosition_ % downFactor_ + part) / downFactor_);
    take(input, part);
    if (inOldBlock == 0) convolve();
    int given = 0;
    const double* from = dole(due, given);
    input += part;
    count -= part;
    if (count == 0 && produced == 0) {
      output = from;
      return given;
    }
    std::copy_n(from, given, result_.data() + produced);
    produced += given;
  }
  return produced;
}

void CDSPBlockConvolver::take(const double* input, int count) noexcept {
  if (downFactor_ == 1) {
    for (int n = 0; n < count; ++n) current_[static_cast<std::size_t>(inputPosition_++)] = input[n];
    return;
  }
  for (int n = 0; n < count; ++n, ++inputPosition_) {
    const int place = inputPosition_ / 2 + inputPosition_ % 2 * blockLength_;
    current_[static_cast<std::size_t>(place)] = input[n];
  }
}

const double* CDSPBlockConvolver::dole(int due, int& count) noexcept {
  const int dropped = std::min(due, latencyLeft_);
  latencyLeft_ -= dropped;
  const double* from = block_.data() + outputPosition_ + dropped;
  outputPosition_ += due;
  count = due - dropped;
  return from;
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
  inputPosition_ = 0;
  outputPosition_ = 0;

  for (int out = 0; out < upFactor_; ++out) {
    for (int in = 0; in < downFactor_; ++in) {
      // Of a halving's two inputs the later one meets the even taps: it keeps the odd outputs.
      const int branch = downFactor_ == 2 ? 1 - in : out;
      const double* ring = spectra_.data() + in * blocks * spectrumLength;
      for (int block = 0; block < blocks; ++block) {
        const int place = newest_ + block < blocks ? newest_ + block : newest_ + block - blocks;
        const auto product = in == 0 && block == 0 ? multiply<false> : multiply<true>;
        product(ring + place * spectrumLength, filter_->spectrum(branch, block), sum_.data(),
                blockLength_);
      }
    }
    if (upFactor_ == 1) {
      transform.inverse(sum_.data(), block_.data());
      return;
    }
    transform.inverse(sum_.data(), branch_.data());
    for (int n = 0; n < blockLength_; ++n) {
      block_[static_cast<std::size_t>(2 * n + out)] = branch_[static_cast<std::size_t>(n)];
    }
  }
}

}  // namespace vellumic::resample
