// What the array pipeline is doing, as plain numbers for tools and tests.
//
// Written after each block, hop and adoption; read it on the thread that runs the frames.
#pragma once

#include <cstdint>

namespace vellumic {

struct PipelineProbe {
  std::int64_t blocks = 0;           // blocks finished since construction
  std::int64_t cancelledBlocks = 0;  // of these, through the cancellers
  std::int64_t adoptions = 0;        // parameter records taken over

  int lastLag = 0;  // samples at the internal rate; positive: microphones trail
  bool delayLocked = false;
  int loopbackDelay = 0;    // samples
  int microphoneDelay = 0;  // samples
  bool streaming = false;   // loopback packets arrive

  // Mean square of the latest block, full scale 1: the first microphone before and after the
  // echo stage (which lags half a block when it cancels), and the sum of both references.
  float microphoneEnergy = 0.0F;
  float residualEnergy = 0.0F;
  float referenceEnergy = 0.0F;
  float covarianceEnergy = 0.0F;  // of the first canceller
  bool converged = false;         // of the first canceller

  bool signalActive = false;  // the beamformer's verdict on the latest hop
  float levelGain = 0.0F;  // linear, of the sample before the latest hop through both level stages
};

}  // namespace vellumic
