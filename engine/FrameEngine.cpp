#include "engine/FrameEngine.h"

#include <utility>

namespace vellumic {

FrameEngine::FrameEngine(LoopbackOpener openLoopback) : pipeline(std::move(openLoopback)) {}

VELLUMIC_RT_CODE void FrameEngine::adopt(bool setWaits) noexcept VELLUMIC_NONBLOCKING {
  if (handover.equalizerWaiting) {
    equalizer.adopt(handover.equalizer);
    handover.equalizerWaiting = false;
  }
  const bool switchesOff = pipeline.running() && !latestRunsPipeline();
  if (!switchesOff || !setWaits) pipeline.adopt(handover.pipeline);
}

}  // namespace vellumic
