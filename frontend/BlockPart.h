// Everything of the array pipeline whose size follows from the block length or the number of
// microphones, as one part of the hand-over.
//
// Threads: construction allocates and belongs off the audio path; the rest is real-time.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "echo/DelayEstimator.h"
#include "echo/EchoCanceller.h"
#include "echo/ReferenceSpectra.h"
#include "filters/BiquadSection.h"
#include "frontend/LiveCount.h"
#include "frontend/SampleRing.h"

namespace vellumic {

struct BlockPart : LiveCount<BlockPart> {
  BlockPart(int samples, int microphones, int delaySearchBlocks);

  // What outlives a new configuration: the cancellers' long-term state, the filter memories and
  // the frame in hand, of the microphones that both have.
  void carryOver(const BlockPart& old) noexcept VELLUMIC_NONBLOCKING;

  // Coefficients of all microphones' high-pass; the memories stay.
  void setHighPass(const BiquadCoefficients& design,
                   float sampleRate) noexcept VELLUMIC_NONBLOCKING;

  int blockSize;
  int micCount;

  std::vector<float> frameSample;  // micCount: the latest in hand, on the way in or out
  ChannelArrays micRun;            // micCount x run: on the way into the block
  ChannelArrays outputRun;         // micCount x run: on the way to the device
  SampleRing micDelay;             // adjustable
  std::vector<BiquadSection> micHighPass;

  // blockSize rows, one column per channel.
  Eigen::ArrayXXf micBlock;         // under collection; processed in place at its end
  Eigen::ArrayXXf outputBlock;      // the finished block, read while the next one fills
  Eigen::ArrayXXf referenceMatrix;  // the two references of the block
  ChannelArrays referenceBlock;     // 2 x blockSize, as last taken from the loopback

  ReferenceSpectra references;
  std::vector<EchoCanceller> cancellers;  // one per microphone
  DelayEstimator delayEstimator;          // over delaySearchBlocks
};

}  // namespace vellumic
