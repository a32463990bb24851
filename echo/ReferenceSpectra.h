// The two loudspeaker references of the present block as every canceller of an array sees them:
// computed once per block, read by all.
//
// A canceller that has just started over must not see the block before: it reads
// `withoutPast()`, in which that block is silent, and keeps statistics of its own from there on.
// That variant costs its transforms only in a block where somebody asks for it.
// Thread: construction anywhere off the audio path, the rest real-time only.
#pragma once

#include <Eigen/Core>
#include <array>
#include <span>

#include "echo/ReferenceStatistics.h"
#include "echo/SplitSpectrum.h"
#include "parameters/StageSettings.h"
#include "platform/Realtime.h"
#include "spectra/Fft.h"

namespace vellumic {

// One canceller's view of a block.
struct ReferenceBlock {
  // Of the last two blocks of each reference, blockLength + 1 bins.
  std::array<SplitSpectrum, 2> spectrum;
  // |spectrum| of the windowed sum of both references, blockLength / 2 + 1 bins: [0] the frame
  // that straddles the block boundary, [1] the block itself.
  std::array<Eigen::ArrayXf, 2> sumMagnitude;

  void setup(Eigen::Index blockLength);
};

class ReferenceSpectra {
 public:
  explicit ReferenceSpectra(int blockLength = 1024);  // even
  // Pole and strength of the decorrelation; the cancellers that share these have the same settings.
  void apply(const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING;
  int blockLength() const noexcept { return blockLength_; }

  // Takes the next block: blockLength samples per reference.
  void advance(std::span<const float> reference0,
               std::span<const float> reference1) noexcept VELLUMIC_NONBLOCKING;

  // The present block is the first of all: whoever starts with it has the same past.
  bool atStart() const noexcept { return atStart_; }
  const ReferenceBlock& present() const noexcept { return present_; }
  const ReferenceBlock& withoutPast() noexcept VELLUMIC_NONBLOCKING;
  const ReferenceBlock& silence() const noexcept { return silence_; }

  // The present block against the statistics of all blocks.
  const DecorrelatedReferences& decorrelated() const noexcept { return decorrelated_; }
  // The same against a canceller's own statistics, which move on. Valid until the next call.
  const DecorrelatedReferences& decorrelatedBy(
      ReferenceStatistics& own, const ReferenceBlock& block) noexcept VELLUMIC_NONBLOCKING;

 private:
  void transform(bool past, ReferenceBlock& block) noexcept;

  int blockLength_;
  bool atStart_ = true, started_ = false;
  bool withoutPastDone_ = false;  // in this block
  EchoCancellerSettings settings_;
  std::array<Eigen::ArrayXf, 2> previous_, current_;
  Eigen::ArrayXf frame_;     // 2 * blockLength
  Eigen::ArrayXf sumFrame_;  // blockLength, windowed
  Eigen::ArrayXf window_;    // symmetric Hann
  SplitSpectrum sumBins_;
  ReferenceBlock present_, withoutPast_, silence_;
  ReferenceStatistics statistics_;
  DecorrelatedReferences decorrelated_, ownDecorrelated_;
  Fft blockFft_, frameFft_;  // 2 * blockLength and blockLength
};

// w[i] = (1 - cos(2 pi i / (length - 1))) / 2
Eigen::ArrayXf symmetricHann(Eigen::Index length);

}  // namespace vellumic
