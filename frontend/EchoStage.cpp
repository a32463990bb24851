#include "frontend/EchoStage.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

#include "frontend/BoundedSample.h"

namespace vellumic {
namespace {

constexpr float unlockEnergy = 0.03F;   // of the first canceller's state covariance
constexpr float targetShare = 0.1F;     // of a block: where the echo path shall begin
constexpr float toleranceShare = 0.3F;  // of that target

std::span<float> column(Eigen::ArrayXXf& matrix, Eigen::Index c) noexcept {
  return {matrix.col(c).data(), static_cast<std::size_t>(matrix.rows())};
}

}  // namespace

EchoStage::EchoStage(LoopbackOpener opener) : loopback(std::move(opener)) {}

void EchoStage::freshStream() noexcept VELLUMIC_NONBLOCKING {
  loopback.setDelay(0);
  delayLocked = false;
  skipped_ = skipped_ || used_;
}

bool EchoStage::run(BlockPart& block, Flags flags) noexcept VELLUMIC_NONBLOCKING {
  if (flags.useLoopback && drainLoopback()) {
    delayLocked = false;
    block.delayEstimator.reset();
  }
  used_ = true;

  if (referenceRequired && !takeReferences(block)) {
    if (flags.referenceMonitor) block.micBlock.col(1).setZero();
    return false;
  }
  keepAligned(block);
  if (flags.referenceMonitor) {
    block.micBlock.col(1) = block.referenceMatrix.col(0);
    return false;
  }

  block.references.advance(column(block.referenceMatrix, 0), column(block.referenceMatrix, 1));
  for (int i = 0; i < block.micCount; ++i) {
    const std::span<float> microphone = column(block.micBlock, i);
    block.cancellers[static_cast<std::size_t>(i)].process(block.references, microphone, microphone);
  }
  return true;
}

// True if the references begin anew, so that they must be aligned anew.
bool EchoStage::drainLoopback() noexcept {
  if (!std::exchange(skipped_, false)) return loopback.drain();
  loopback.discard();
  return true;
}

// The matrix is filled either way: without fresh data the last block stands.
bool EchoStage::takeReferences(BlockPart& block) noexcept {
  const bool fresh = loopback.popBlock(block.referenceBlock, block.blockSize);
  for (std::size_t r = 0; r < 2; ++r)
    std::ranges::transform(block.referenceBlock[r],
                           block.referenceMatrix.col(static_cast<Eigen::Index>(r)).begin(),
                           [](float sample) { return soundSample(sample); });
  return fresh;
}

void EchoStage::keepAligned(BlockPart& block) noexcept {
  const EchoCanceller& first = block.cancellers.front();
  const bool wasLocked = delayLocked;
  if (wasLocked && first.covarianceEnergy > unlockEnergy && first.converged) delayLocked = false;
  if (!wasLocked) estimateDelay(block);
}

void EchoStage::estimateDelay(BlockPart& block) noexcept {
  block.delayEstimator.update(block.referenceMatrix, block.micBlock);
  lastLag = block.delayEstimator.committedLag;
  if (lastLag == 0) return;

  const auto length = static_cast<float>(block.cancellers.front().blockLength());
  const int target = static_cast<int>(std::round(length * targetShare));
  const int tolerance = static_cast<int>(std::round(static_cast<float>(target) * toleranceShare));
  if (lastLag > target + tolerance || lastLag < target - tolerance) {
    const int correction = lastLag - target;
    if (!loopback.setDelay(loopback.delay() + correction))
      block.micDelay.setDelay(block.micDelay.delay() - correction);
  }
  block.delayEstimator.reset();
  delayLocked = true;
}

}  // namespace vellumic
