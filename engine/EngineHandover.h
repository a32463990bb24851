// The one place where a builder of parameter sets leaves what the engine's signal objects are to
// take over: the latest equaliser record and the pipeline's waiting parts.
//
// Builders never touch the live objects. Each build replaces what waits and was not adopted yet;
// the real-time thread adopts by copying records and exchanging pointers. Every member is used
// under parameterLock only.
#pragma once

#include "filters/EqualizerRecord.h"
#include "frontend/PipelineHandover.h"

namespace vellumic {

struct EngineHandover {
  EqualizerRecord equalizer;  // the builder's latest design, also the base of its next one
  bool equalizerWaiting = false;
  PipelineHandover pipeline;
};

}  // namespace vellumic
