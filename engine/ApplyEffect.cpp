#include "engine/ApplyEffect.h"

#include <algorithm>

#include "engine/FrameEngine.h"
#include "parameters/Saturate.h"

namespace vellumic {
namespace {

VELLUMIC_RT_CODE EffectMode modeOf(ConstImageView image) noexcept {
  return static_cast<EffectMode>(saturatedInt(image[Entry::effectMode]));
}

// The bound is compared as a float, so that a channel count that is not a number trims nothing.
VELLUMIC_RT_CODE void trim(float* slots, float gain, float channels) noexcept {
  for (int slot = 0; slot < slotCount && static_cast<float>(slot) < channels; ++slot)
    slots[slot] *= gain;
}

VELLUMIC_RT_CODE void runPipeline(FrameEngine& engine, EffectMode mode, float* slots) noexcept {
  if (mode == EffectMode::array)
    engine.pipeline.processFrame(slots);
  else
    engine.pipeline.processFrame12(slots);
}

VELLUMIC_RT_CODE bool usesPipeline(ConstImageView image, ConstMaskView mask) noexcept {
  if (mask[Entry::effectEnable] == 0) return false;
  const EffectMode mode = modeOf(image);
  return mode == EffectMode::array || mode == EffectMode::arrayFourChannel;
}

}  // namespace

VELLUMIC_RT_CODE void applyEffect(FrameEngine& engine, float* slots, ConstImageView image,
                                  ConstMaskView mask) noexcept {
  if (mask[Entry::effectEnable] == 0) return;
  const EffectMode mode = modeOf(image);
  switch (mode) {
    case EffectMode::array:
    case EffectMode::arrayFourChannel:
      trim(slots, image[Entry::inputGain], image[Entry::inputChannels]);
      if (engine.pipelineRuns) runPipeline(engine, mode, slots);
      trim(slots, image[Entry::outputGain], image[Entry::inputChannels]);
      break;
    case EffectMode::equalizer:
      engine.equalizer.process(slots);
      break;
  }
}

VELLUMIC_RT_CODE bool isEqualizerOnly(ConstImageView image, ConstMaskView mask) noexcept {
  return mask[Entry::effectEnable] != 0 && modeOf(image) == EffectMode::equalizer;
}

VELLUMIC_RT_CODE void applyEffects(FrameEngine& engine, float* slots, ConstImageView image,
                                   ConstMaskView mask, float* nextSlots, ConstImageView nextImage,
                                   ConstMaskView nextMask, float weight) noexcept {
  const bool sharesPipeline =
      engine.pipelineRuns && usesPipeline(image, mask) && usesPipeline(nextImage, nextMask);
  if (!sharesPipeline) {
    applyEffect(engine, slots, image, mask);
    applyEffect(engine, nextSlots, nextImage, nextMask);
    return;
  }
  trim(slots, image[Entry::inputGain], image[Entry::inputChannels]);
  trim(nextSlots, nextImage[Entry::inputGain], nextImage[Entry::inputChannels]);
  for (int slot = 0; slot < slotCount; ++slot)
    slots[slot] = (1.0F - weight) * slots[slot] + weight * nextSlots[slot];
  runPipeline(engine, modeOf(image), slots);
  std::copy_n(slots, slotCount, nextSlots);
  trim(slots, image[Entry::outputGain], image[Entry::inputChannels]);
  trim(nextSlots, nextImage[Entry::outputGain], nextImage[Entry::inputChannels]);
}

}  // namespace vellumic
