#include "engine/SwapSets.h"

#include <utility>

#include "engine/BuildImage.h"
#include "engine/FrameEngine.h"
#include "engine/Volumes.h"

namespace vellumic {

VELLUMIC_RT_CODE void swapSets(FrameEngine& engine, float** fadeSlot, float** imageSlot,
                               std::uint8_t** maskSlot, void** reservedSlot,
                               std::uint8_t& toggle) noexcept VELLUMIC_NONBLOCKING {
  if (fadeSlot != nullptr) std::swap(*fadeSlot, engine.nextFadeState);
  if (imageSlot != nullptr) {
    storeVolumes(engine.nextImage, loadVolumes(*imageSlot));
    std::swap(*imageSlot, engine.nextImage);
  }
  if (maskSlot != nullptr) std::swap(*maskSlot, engine.nextMask);
  if (reservedSlot != nullptr) std::swap(*reservedSlot, engine.nextReserved);
  toggle = toggle == 0 ? 1 : 0;
}

VELLUMIC_RT_CODE void rebuildNextMask(FrameEngine& engine) noexcept VELLUMIC_NONBLOCKING {
  buildMask(ConstImageView(engine.nextImage), MaskView(engine.nextMask));
  engine.equalizer.reset();
}

}  // namespace vellumic
