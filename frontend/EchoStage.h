// The echo stage of a block: references from the loopback, alignment of the streams, one canceller
// per microphone.
//
// While the delay is not locked, each block measures the lag of the microphones behind the
// references and, once it is certain, slides one of the streams so that the echo path begins a
// tenth of a block into the filters. A filter that has converged and grows uncertain unlocks it;
// so do references that begin anew, after a pause of the loudspeakers or of this stage.
//
// Threads: construction and the loopback's start and stop on a control thread while no block runs;
// the rest is real-time.
#pragma once

#include "frontend/BlockPart.h"
#include "frontend/LoopbackSource.h"
#include "platform/Realtime.h"

namespace vellumic {

class EchoStage {
 public:
  explicit EchoStage(LoopbackOpener opener);

  struct Flags {
    bool useLoopback;       // false: the block's referenceMatrix came with the frames
    bool referenceMonitor;  // microphone 1 is replaced by reference 0, nothing is cancelled
  };

  // Works on block.micBlock in place. True if the cancellers ran.
  bool run(BlockPart& block, Flags flags) noexcept VELLUMIC_NONBLOCKING;

  // The stage was passed over: references go unread and grow stale until the next run().
  void skip() noexcept { skipped_ = true; }

  // Both streams begin anew with their initial delays, in a new block part. The frames may have
  // paused before, so that what the loopback holds is as stale as after skip().
  void freshStream() noexcept VELLUMIC_NONBLOCKING;

  LoopbackSource loopback;
  bool referenceRequired = true;  // a block without loopback data is not cancelled
  bool delayLocked = false;
  int lastLag = 0;  // samples; positive: the microphones trail

 private:
  bool drainLoopback() noexcept;
  bool takeReferences(BlockPart& block) noexcept;
  void keepAligned(BlockPart& block) noexcept;
  void estimateDelay(BlockPart& block) noexcept;

  bool skipped_ = false;
  bool used_ = false;  // run() came at least once
};

}  // namespace vellumic
