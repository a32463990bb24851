#include "engine/ProcessBlock.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "engine/FadeClock.h"
#include "engine/FrameEngine.h"
#include "engine/FrameLoops.h"
#include "engine/LockBlock.h"
#include "engine/SwapSets.h"

namespace vellumic {
namespace {

VELLUMIC_RT_CODE bool fadeRequested(const std::uint8_t* mask) noexcept {
  return ConstMaskView(mask)[Entry::fadeRequested] != 0;
}

VELLUMIC_RT_CODE void startChange(ProcessContext& context) noexcept {
  const FadeView fade(*context.fadeSlot);
  if (context.lockBlock->pending == 0 || changeUnderWay(fade)) return;
  const bool byFade = fadeRequested(*context.pendingMaskSlot);
  MaskView(*context.maskSlot)[Entry::fadeRequested] = byFade ? 1 : 0;
  if (byFade) {
    fade[Fade::phase] = -1.0F;
    swapSets(*context.engine, nullptr, context.pendingImageSlot, context.pendingMaskSlot, nullptr,
             *context.toggle);
    rebuildNextMask(*context.engine);
    context.engine->nextRunsPipeline = context.engine->latestRunsPipeline();
  } else {
    fade[Fade::done] = 1.0F;
  }
  context.lockBlock->pending = 0;
}

VELLUMIC_RT_CODE void endChange(ProcessContext& context) noexcept {
  if (FadeView(*context.fadeSlot)[Fade::done] != 1.0F) return;
  if (fadeRequested(*context.maskSlot)) {
    swapSets(*context.engine, context.fadeSlot, context.imageSlot, context.maskSlot,
             context.reservedSlot, *context.toggle);
    context.engine->runsPipeline = context.engine->nextRunsPipeline;
  } else {
    std::swap(*context.imageSlot, *context.pendingImageSlot);
    std::swap(*context.maskSlot, *context.pendingMaskSlot);
    context.engine->runsPipeline = context.engine->latestRunsPipeline();
  }
  endFade(FadeView(*context.fadeSlot));
}

// Everything that waits for the lock. When a builder holds it, the change waits for a later call.
VELLUMIC_RT_CODE void takeChanges(ProcessContext& context) noexcept {
  CriticalLock& lock = context.lockBlock->parameterLock;
  if (!lock.tryEnter()) return;
  startChange(context);
  endChange(context);
  const bool setWaits =
      context.lockBlock->pending != 0 || changeUnderWay(FadeView(*context.fadeSlot));
  context.engine->adopt(setWaits);
  lock.leave();
}

VELLUMIC_RT_CODE void runFrames(ProcessContext& context) noexcept {
  const FrameStream stream{.output = context.outputBuffer,
                           .input = context.inputBuffer,
                           .frames = context.inputValidFrames,
                           .inputChannels = context.inputChannels,
                           .outputChannels = context.outputChannels};
  const ParameterSet set{.image = ConstImageView(*context.imageSlot),
                         .mask = ConstMaskView(*context.maskSlot),
                         .fade = FadeView(*context.fadeSlot)};
  if (context.lockBlock->holdFlag != 0)
    passThroughFrames(*context.engine, stream, set.mask);
  else if (set.fade[Fade::phase] == -1.0F || set.fade[Fade::weight] != 0.0F)
    fadeFrames(*context.engine, stream, set);
  else
    forwardFrames(*context.engine, stream, set);
}

}  // namespace

VELLUMIC_RT_CODE void processBlock(ProcessContext& context) noexcept VELLUMIC_NONBLOCKING {
  if (context.inputFlags != buffer_flags::valid) context.engine->pipeline.skipFrames();
  if (context.inputFlags == buffer_flags::silent) {
    std::fill_n(context.outputBuffer,
                std::size_t{context.outputChannels} * context.inputValidFrames, 0.0F);
  } else if (context.inputFlags == buffer_flags::valid) {
    takeChanges(context);
    runFrames(context);
    context.engine->equalizer.restartBroken();
  } else {
    return;
  }
  context.outputValidFrames = context.inputValidFrames;
  context.outputFlags = context.inputFlags;
}

}  // namespace vellumic
