// What the array pipeline is doing, as plain numbers for tools and tests.
//
// Written by the frame path at the end of each block or hop; read on the same thread.
#pragma once

#include <cstdint>

namespace vellumic {

struct PipelineProbe {
  std::int64_t blocks = 0;           // blocks finished since construction
  std::int64_t cancelledBlocks = 0;  // of these, through the cancellers
  std::int64_t adoptions = 0;        // parameter records taken over

  int lastLag = 0;           // samples at the internal rate; positive: microphones trail
  bool delayLocked = false;
  int loopbackDelay = 0;     // samples
  int microphoneDelay = 0;   // samples

  // Mean square of the latest block, full scale 1: the first microphone before and after the
  // echo stage, and the sum of both references.
  float microphoneEnergy = 0.0F;
  float residualEnergy = 0.0F;
  float referenceEnergy = 0.0F;
  float covarianceEnergy = 0.0F;  // of the first canceller
  bool converged = false;         // of the first canceller

  float levelGain = 1.0F;  // linear, both stages of the output level control
};

}  // namespace vellumic
