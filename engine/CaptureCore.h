// Everything portable of one capture object, in the order in which it must be built and torn down.
// The offline renderer, the benchmarks and the tests hold one of these. The Windows objects have
// the same members among theirs: arena and lock block before the engine, the engine before the
// sets.
#pragma once

#include <utility>

#include "engine/Arena.h"
#include "engine/FrameEngine.h"
#include "engine/LockBlock.h"
#include "engine/ParameterSets.h"
#include "engine/ProcessContext.h"

namespace vellumic {

struct CaptureCore {
  explicit CaptureCore(LoopbackOpener openLoopback) : engine(std::move(openLoopback)) {}

  Arena arena;
  LockBlock lockBlock;
  FrameEngine engine;
  ParameterSets sets{arena, engine, lockBlock};
  ProcessContext context;  // filled by sets.lock()
};

}  // namespace vellumic
