#include "resample/CDSPBlockConvolver.h"

#include <algorithm>
#include <utility>

namespace vellumic::resample {
CDSPBlockConvolver::CDSPBlockConvolver(std::shared_ptr<const CDSPFIRFilter> filter, int up,
                                       int down, int maxInput)
    : filter_(std::move(filter)),
      transform_(filter_->blockBits()),
      scratch_(filter_->blockLength()),
      upFactor_(up),
      downFactor_(down),
      blockLength_(filter_->blockLength()) {
  const auto block = static_cast<std::size_t>(blockLength_);
  const auto inputBlock = block * static_cast<std::size_t>(down);
  incoming_.resize(inputBlock);
  previous_.resize(inputBlock);
  current_.resize(inputBlock);
  spectra_.resize(static_cast<std::size_t>(filter_->blocks()) * inputBlock * 2);
  products_.resize(static_cast<std::size_t>(down * filter_->blocks()));
  sum_.resize(2 * block);
  branch_.resize(block);
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

void CDSPBlockConvolver::pace(std::span<int> counts) const noexcept VELLUMIC_NONBLOCKING {
  int waiting = inputBranch_, late = latencyLeft_;
  for (int& count : counts) {
    int outputs = 0;
    for (waiting += count; waiting >= downFactor_; waiting -= downFactor_) outputs += upFactor_;
    const int dropped = std::min(outputs, late);
    late -= dropped;
    count = outputs - dropped;
  }
}

void CDSPBlockConvolver::follow(const CDSPBlockConvolver& leader) noexcept VELLUMIC_NONBLOCKING {
  for (auto values : {&CDSPBlockConvolver::incoming_, &CDSPBlockConvolver::previous_,
                      &CDSPBlockConvolver::spectra_, &CDSPBlockConvolver::block_})
    std::ranges::copy(leader.*values, (this->*values).begin());
  newest_ = leader.newest_;
  position_ = leader.position_;
  frame_ = leader.frame_;
  inputBranch_ = leader.inputBranch_;
  latencyLeft_ = leader.latencyLeft_;
}

void CDSPBlockConvolver::clear() noexcept {
  for (auto* values : {&incoming_, &previous_, &spectra_, &block_}) std::ranges::fill(*values, 0.0);
  newest_ = 0;
  position_ = 0;
  frame_ = 0;
  inputBranch_ = 0;
  latencyLeft_ = delayOutputs() + (blockLength_ - 1) * upFactor_;
}

int CDSPBlockConvolver::process(const double* input, int count,
                                const double*& output) noexcept VELLUMIC_NONBLOCKING {
  return count == 1 ? processOne(*input, output) : processRun(input, count, output);
}

int CDSPBlockConvolver::processOne(double sample, const double*& output) noexcept {
  incoming_[static_cast<std::size_t>(position_++)] = sample;
  if (++inputBranch_ < downFactor_) return 0;
  inputBranch_ = 0;
  if (++frame_ == blockLength_) convolve();
  return dole(frame_, 1, output);
}

int CDSPBlockConvolver::processRun(const double* input, int count, const double*& output) noexcept {
  const int inputBlock = blockLength_ * downFactor_;
  double* result = result_.data();
  output = result;
  while (count > 0) {
    const int taken = std::min(count, inputBlock - position_);
    std::copy_n(input, taken, incoming_.begin() + position_);
    input += taken;
    count -= taken;
    position_ += taken;
    inputBranch_ += taken;
    const int frames = inputBranch_ / downFactor_;
    inputBranch_ -= frames * downFactor_;
    const int first = frame_ + 1;
    frame_ += frames;
    const bool full = frame_ == blockLength_;
    const double* due = nullptr;
    int outputs = dole(first, full ? frames - 1 : frames, due);
    result = std::copy_n(due, outputs, result);
    if (!full) continue;
    convolve();
    outputs = dole(0, 1, due);
    result = std::copy_n(due, outputs, result);
  }
  return static_cast<int>(result - output);
}

// The outputs of `frames` frames, without those that the start-up delay swallows.
int CDSPBlockConvolver::dole(int first, int frames, const double*& output) noexcept {
  const int outputs = frames * upFactor_;
  const int dropped = std::min(outputs, latencyLeft_);
  latencyLeft_ -= dropped;
  output = block_.data() + first * upFactor_ + dropped;
  return outputs - dropped;
}

void CDSPBlockConvolver::convolve() noexcept {
  const int blocks = filter_->blocks();
  newest_ = newest_ == 0 ? blocks - 1 : newest_ - 1;
  for (int in = 0; in < downFactor_; ++in) {
    double* const current = current_.data() + in * blockLength_;
    for (int n = 0; n < blockLength_; ++n) {
      current[n] = incoming_[static_cast<std::size_t>(n * downFactor_ + in)];
    }
    transform_->forward(scratch_, previous_.data() + in * blockLength_, current,
                        spectra_.data() + (in * blocks + newest_) * 2 * blockLength_);
  }
  previous_.swap(current_);
  position_ = 0;
  frame_ = 0;

  for (int out = 0; out < upFactor_; ++out) {
    sumBranch(out);
    transform_->inverse(scratch_, sum_.data(), branch_.data());
    for (int n = 0; n < blockLength_; ++n) {
      block_[static_cast<std::size_t>(n * upFactor_ + out)] = branch_[static_cast<std::size_t>(n)];
    }
  }
}

// The spectrum of one output branch.
void CDSPBlockConvolver::sumBranch(int out) noexcept {
  const int blocks = filter_->blocks(), spectrumLength = 2 * blockLength_;
  auto product = products_.begin();
  for (int in = 0; in < downFactor_; ++in) {
    // The last input of a frame meets the first tap: a lowered rate keeps the last outputs.
    const int branch = out + downFactor_ - 1 - in;
    const double* ring = spectra_.data() + in * blocks * spectrumLength;
    for (int block = 0; block < blocks; ++block) {
      const int place = newest_ + block < blocks ? newest_ + block : newest_ + block - blocks;
      *product++ = {ring + place * spectrumLength, filter_->spectrum(branch, block)};
    }
  }
  converterKernels().sumProducts(products_.data(), static_cast<int>(products_.size()), sum_.data(),
                                 blockLength_);
}

}  // namespace vellumic::resample
