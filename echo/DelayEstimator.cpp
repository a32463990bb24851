#include "echo/DelayEstimator.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdlib>

namespace vellumic {

namespace {

// Moves `history` on by the rows of `samples` and appends the sum over its columns.
void append(const Eigen::Ref<const Eigen::ArrayXXf>& samples, Eigen::ArrayXf& history) noexcept {
  const Eigen::Index count = samples.rows();
  std::copy(history.data() + count, history.data() + history.size(), history.data());
  auto tail = history.tail(count);
  tail = samples.col(0);
  for (Eigen::Index c = 1; c < samples.cols(); ++c) tail += samples.col(c);
}

}  // namespace

DelayEstimator::DelayEstimator() { rebuild(); }

void DelayEstimator::setBlockSize(int samples) { blockSize_ = samples; }

void DelayEstimator::setWindowSize(int samples) { windowSize_ = samples; }

void DelayEstimator::rebuild() {
  fft_.prepare(2 * windowSize_);
  referenceHistory_.resize(windowSize_);
  micHistory_.resize(windowSize_);
  padded_.resize(2 * windowSize_);
  referenceBins_.setZero(windowSize_ + 1);
  micBins_.setZero(windowSize_ + 1);
  clear();
}

void DelayEstimator::clear() noexcept {
  referenceHistory_.setZero();
  micHistory_.setZero();
  padded_.setZero();
}

void DelayEstimator::reset() noexcept VELLUMIC_NONBLOCKING {
  clear();
  committedLag = lastLag = agreeCount = 0;
}

void DelayEstimator::update(const Eigen::Ref<const Eigen::ArrayXXf>& reference,
                            const Eigen::Ref<const Eigen::ArrayXXf>& microphones) noexcept
    VELLUMIC_NONBLOCKING {
  assert(reference.rows() == blockSize_ && microphones.rows() == blockSize_);
  append(reference, referenceHistory_);
  append(microphones, micHistory_);
  accept(rawLag());
}

int DelayEstimator::rawLag() noexcept {
  padded_.head(windowSize_) = referenceHistory_;
  padded_.tail(windowSize_).setZero();
  fft_.forward(padded_.data(), referenceBins_.data());
  padded_.head(windowSize_) = micHistory_;
  fft_.forward(padded_.data(), micBins_.data());
  micBins_ = referenceBins_.conjugate() * micBins_;
  fft_.inverse(micBins_.data(), padded_.data());

  Eigen::Index best = 0;
  float greatest = 0.0F;
  for (Eigen::Index i = 0; i < padded_.size(); ++i) {
    const float magnitude = std::abs(padded_[i]);
    if (!(magnitude > greatest)) continue;
    greatest = magnitude;
    best = i;
  }
  const int lag = static_cast<int>(best);
  return lag > windowSize_ ? lag - 2 * windowSize_ : lag;
}

void DelayEstimator::accept(int lag) noexcept VELLUMIC_NONBLOCKING {
  if (lag != committedLag) {
    ++agreeCount;
    const int tolerance =
        std::abs(static_cast<int>(std::round(static_cast<float>(lastLag) * agreeTolerance)));
    if (std::abs(lag - lastLag) > tolerance) agreeCount = 0;
    if (agreeCount >= agreeBlocks) committedLag = lag;
  }
  lastLag = lag;
}

}  // namespace vellumic
