#include "echo/DelayEstimator.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdlib>

#include "echo/kernels/CorrelationKernels.h"
#include "spectra/ArrayViews.h"

namespace vellumic {

namespace {

// Moves `history` on by the rows of `samples` and appends the sum over its columns.
void append(const Eigen::ArrayXXf& samples, Eigen::ArrayXf& history) noexcept {
  const Eigen::Index count = samples.rows();
  std::copy(history.data() + count, history.data() + history.size(), history.data());
  auto tail = history.tail(count);
  tail = samples.col(0);
  for (Eigen::Index c = 1; c < samples.cols(); ++c) tail += samples.col(c);
}

}  // namespace

DelayEstimator::DelayEstimator() { rebuild(); }

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
  whole(referenceHistory_).setZero();
  whole(micHistory_).setZero();
}

void DelayEstimator::reset() noexcept VELLUMIC_NONBLOCKING {
  clear();
  committedLag = lastLag = agreeCount = 0;
}

void DelayEstimator::update(const Eigen::ArrayXXf& reference,
                            const Eigen::ArrayXXf& microphones) noexcept VELLUMIC_NONBLOCKING {
  assert(reference.rows() == microphones.rows() && reference.rows() <= windowSize_);
  append(reference, referenceHistory_);
  append(microphones, micHistory_);
  accept(rawLag());
}

int DelayEstimator::rawLag() noexcept {
  padded_.tail(windowSize_).setZero();
  padded_.head(windowSize_) = referenceHistory_;
  referenceBins_.fromSamples(fft_, padded_.data());
  padded_.head(windowSize_) = micHistory_;
  micBins_.fromSamples(fft_, padded_.data());
  correlationKernels().correlate(referenceBins_.planes(), micBins_.planes(),
                                 static_cast<int>(micBins_.size()));
  micBins_.toSamples(fft_, padded_.data());
  const int lag = correlationKernels().firstPeak(padded_.data(), 2 * windowSize_);
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
