#include "engine/FrameEngine.h"

#include <utility>

namespace vellumic {

FrameEngine::FrameEngine(LoopbackOpener openLoopback) : pipeline(std::move(openLoopback)) {
  inputIndex.fill(-1);
  outputIndex.fill(-1);
  for (const std::size_t slot : {0U, 1U}) {
    inputIndex[slot] = static_cast<std::int32_t>(slot);
    outputIndex[slot] = static_cast<std::int32_t>(slot);
  }
}

VELLUMIC_RT_CODE void FrameEngine::adopt(bool setWaits) noexcept VELLUMIC_NONBLOCKING {
  if (handover.equalizerWaiting) {
    equalizer.adopt(handover.equalizer);
    handover.equalizerWaiting = false;
  }
  const bool switchesOff = pipeline.running() && !latestRunsPipeline();
  if (!switchesOff || !setWaits) pipeline.adopt(handover.pipeline);
}

}  // namespace vellumic
