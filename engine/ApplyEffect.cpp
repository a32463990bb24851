#include "engine/ApplyEffect.h"

#include <algorithm>

#include "engine/FrameEngine.h"
#include "engine/SpeakerFrame.h"
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

VELLUMIC_RT_CODE bool isArrayMode(ConstImageView image, ConstMaskView mask) noexcept {
  if (mask[Entry::effectEnable] == 0) return false;
  const EffectMode mode = modeOf(image);
  return mode == EffectMode::array || mode == EffectMode::arrayFourChannel;
}

VELLUMIC_RT_CODE void trimInput(const FadeSide& side) noexcept {
  trim(side.slots, side.image[Entry::inputGain], side.image[Entry::inputChannels]);
}
VELLUMIC_RT_CODE void trimOutput(const FadeSide& side) noexcept {
  trim(side.slots, side.image[Entry::outputGain], side.image[Entry::inputChannels]);
}

VELLUMIC_RT_CODE void applySide(FrameEngine& engine, const FadeSide& side) noexcept {
  if (side.mask[Entry::effectEnable] == 0) return;
  const EffectMode mode = modeOf(side.image);
  switch (mode) {
    case EffectMode::array:
    case EffectMode::arrayFourChannel:
      trimInput(side);
      if (side.runsPipeline) runPipeline(engine, mode, side.slots);
      trimOutput(side);
      break;
    case EffectMode::equalizer:
      engine.equalizer.process(side.slots);
      break;
  }
}

}  // namespace

VELLUMIC_RT_CODE void applyEffect(FrameEngine& engine, float* slots, ConstImageView image,
                                  ConstMaskView mask) noexcept {
  applySide(engine, {slots, image, mask, engine.runsPipeline});
}

VELLUMIC_RT_CODE bool isEqualizerOnly(ConstImageView image, ConstMaskView mask) noexcept {
  return mask[Entry::effectEnable] != 0 && modeOf(image) == EffectMode::equalizer;
}

VELLUMIC_RT_CODE FadeSide outgoingSide(FrameEngine& engine, ConstImageView image,
                                       ConstMaskView mask) noexcept {
  return {engine.frame.data(), image, mask, engine.runsPipeline && isArrayMode(image, mask)};
}

VELLUMIC_RT_CODE FadeSide incomingSide(FrameEngine& engine) noexcept {
  const ConstImageView image(engine.nextImage);
  const ConstMaskView mask(engine.nextMask);
  return {engine.fadeFrame.data(), image, mask,
          engine.nextRunsPipeline && isArrayMode(image, mask)};
}

VELLUMIC_RT_CODE void applyEffects(FrameEngine& engine, const FadeSide& outgoing,
                                   const FadeSide& incoming, float weight) noexcept {
  if (!outgoing.runsPipeline || !incoming.runsPipeline) {
    applySide(engine, outgoing);
    applySide(engine, incoming);
    return;
  }
  trimInput(outgoing);
  trimInput(incoming);
  mixPositions(outgoing.slots, incoming.slots, weight);
  runPipeline(engine, modeOf(outgoing.image), outgoing.slots);
  std::copy_n(outgoing.slots, slotCount, incoming.slots);
  trimOutput(outgoing);
  trimOutput(incoming);
}

}  // namespace vellumic
