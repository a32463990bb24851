#include "echo/ReferenceSpectra.h"

#include <cassert>
#include <cmath>
#include <numbers>
#include <utility>

#include "echo/kernels/ReferenceKernels.h"
#include "spectra/ArrayViews.h"

namespace vellumic {

void ReferenceBlock::setup(Eigen::Index blockLength) {
  for (auto& bins : spectrum) bins.setZero(blockLength + 1);
  for (auto& bins : sumMagnitude) bins.setZero(blockLength / 2 + 1);
}

ReferenceSpectra::ReferenceSpectra(int blockLength) : blockLength_(blockLength) {
  for (auto& block : previous_) block.setZero(blockLength);
  for (auto& block : current_) block.setZero(blockLength);
  frame_.setZero(2 * blockLength);
  sumFrame_.setZero(blockLength);
  sumBins_.setZero(blockLength / 2 + 1);
  window_ = symmetricHann(blockLength);
  present_.setup(blockLength);
  withoutPast_.setup(blockLength);
  silence_.setup(blockLength);
  statistics_.setup(blockLength + 1);
  decorrelated_.setup(blockLength + 1);
  ownDecorrelated_.setup(blockLength + 1);
  blockFft_.prepare(2 * blockLength);
  frameFft_.prepare(blockLength);
}

void ReferenceSpectra::apply(const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  settings_ = settings;
}

void ReferenceSpectra::advance(std::span<const float> reference0,
                               std::span<const float> reference1) noexcept VELLUMIC_NONBLOCKING {
  assert(std::ssize(reference0) >= blockLength_ && std::ssize(reference1) >= blockLength_);
  for (std::size_t r = 0; r < 2; ++r) {
    previous_[r].swap(current_[r]);
    const float* samples = r == 0 ? reference0.data() : reference1.data();
    whole(current_[r]) = Eigen::Map<const Eigen::ArrayXf>(samples, blockLength_);
  }
  atStart_ = !std::exchange(started_, true);
  transform(true, present_);
  statistics_.update(present_.spectrum, settings_, decorrelated_);
  withoutPastDone_ = false;
}

const ReferenceBlock& ReferenceSpectra::withoutPast() noexcept VELLUMIC_NONBLOCKING {
  if (atStart_) return present_;
  if (!withoutPastDone_) transform(false, withoutPast_);
  withoutPastDone_ = true;
  return withoutPast_;
}

const DecorrelatedReferences& ReferenceSpectra::decorrelatedBy(
    ReferenceStatistics& own, const ReferenceBlock& block) noexcept VELLUMIC_NONBLOCKING {
  own.update(block.spectrum, settings_, ownDecorrelated_);
  return ownDecorrelated_;
}

void ReferenceSpectra::transform(bool past, ReferenceBlock& block) noexcept {
  for (std::size_t r = 0; r < 2; ++r) {
    if (past)
      frame_.head(blockLength_) = previous_[r];
    else
      frame_.head(blockLength_).setZero();
    frame_.tail(blockLength_) = current_[r];
    block.spectrum[r].fromSamples(blockFft_, frame_.data());
  }
  const int half = blockLength_ / 2;
  for (std::size_t pass = 0; pass < 2; ++pass) {
    if (pass == 1)
      whole(sumFrame_) = current_[0] + current_[1];
    else if (past)
      sumFrame_ << previous_[0].tail(half) + previous_[1].tail(half),
          current_[0].head(half) + current_[1].head(half);
    else
      sumFrame_ << Eigen::ArrayXf::Zero(half), current_[0].head(half) + current_[1].head(half);
    sumFrame_ *= window_;
    sumBins_.fromSamples(frameFft_, sumFrame_.data());
    referenceKernels().magnitude(sumBins_.planes(), block.sumMagnitude[pass].data(),
                                 static_cast<int>(sumBins_.size()));
  }
}

Eigen::ArrayXf symmetricHann(Eigen::Index length) {
  const double step = 2.0 * std::numbers::pi / static_cast<double>(length - 1);
  return Eigen::ArrayXf::NullaryExpr(length, [step](Eigen::Index i) {
    return static_cast<float>((1.0 - std::cos(step * static_cast<double>(i))) / 2.0);
  });
}

}  // namespace vellumic
