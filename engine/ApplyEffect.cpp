#include "engine/ApplyEffect.h"

#include <algorithm>

#include "engine/FrameEngine.h"
#include "engine/SpeakerFrame.h"
#include "parameters/Saturate.h"

namespace vellumic {
namespace {

constexpr std::size_t fourChannels = 4;  // of the array's four-channel form

VELLUMIC_RT_CODE EffectMode modeOf(ConstImageView image) noexcept {
  return static_cast<EffectMode>(saturatedInt(image[Entry::effectMode]));
}

// The bound is compared as a float, so that a channel count that is not a number trims nothing.
VELLUMIC_RT_CODE void trim(const FrameRun& run, float gain, float channels) noexcept {
  if (gain == 1.0F) return;
  std::size_t trimmed = 0;
  while (trimmed < run.width && static_cast<float>(trimmed) < channels) ++trimmed;
  float* slots = run.slots;
  for (std::size_t n = 0; n < run.frames; ++n, slots += run.width)
    for (std::size_t slot = 0; slot < trimmed; ++slot) slots[slot] *= gain;
}

VELLUMIC_RT_CODE void runPipeline(FrameEngine& engine, EffectMode mode,
                                  const FrameRun& run) noexcept {
  if (mode == EffectMode::array)
    engine.pipeline.processFrames(run.slots, run.width, run.frames);
  else
    engine.pipeline.processFrames12(run.slots, run.width, run.frames);
}

// One frame of a fade.
VELLUMIC_RT_CODE FrameRun frameOf(const FadeSide& side) noexcept {
  return {side.slots, slotCount, 1};
}

VELLUMIC_RT_CODE bool isArrayMode(ConstImageView image, ConstMaskView mask) noexcept {
  if (mask[Entry::effectEnable] == 0) return false;
  const EffectMode mode = modeOf(image);
  return mode == EffectMode::array || mode == EffectMode::arrayFourChannel;
}

VELLUMIC_RT_CODE void trimInput(const FrameRun& run, ConstImageView image) noexcept {
  trim(run, image[Entry::inputGain], image[Entry::inputChannels]);
}
VELLUMIC_RT_CODE void trimOutput(const FrameRun& run, ConstImageView image) noexcept {
  trim(run, image[Entry::outputGain], image[Entry::inputChannels]);
}

VELLUMIC_RT_CODE void applySet(FrameEngine& engine, const FrameRun& run, ConstImageView image,
                               ConstMaskView mask, bool runsPipeline) noexcept {
  if (mask[Entry::effectEnable] == 0) return;
  const EffectMode mode = modeOf(image);
  switch (mode) {
    case EffectMode::array:
    case EffectMode::arrayFourChannel:
      trimInput(run, image);
      if (runsPipeline) runPipeline(engine, mode, run);
      trimOutput(run, image);
      break;
    case EffectMode::equalizer:
      if (run.frames == 1)
        engine.equalizer.process(run.slots);
      else
        engine.equalizer.processFrames(run.slots, run.width, run.frames);
      break;
  }
}

VELLUMIC_RT_CODE void applySide(FrameEngine& engine, const FadeSide& side) noexcept {
  applySet(engine, frameOf(side), side.image, side.mask, side.runsPipeline);
}

}  // namespace

VELLUMIC_RT_CODE void applyEffect(FrameEngine& engine, const FrameRun& run, ConstImageView image,
                                  ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING {
  applySet(engine, run, image, mask, engine.runsPipeline);
}

VELLUMIC_RT_CODE std::size_t runWidth(const FrameEngine& engine, ConstImageView image,
                                      ConstMaskView mask,
                                      std::uint32_t channels) noexcept VELLUMIC_NONBLOCKING {
  const std::size_t even = (std::size_t{channels} + 1) / 2 * 2;
  std::size_t needed = 2 * engine.equalizer.pairs().size();
  if (isArrayMode(image, mask)) {
    const auto microphones = static_cast<std::size_t>(engine.pipeline.micCount());
    needed = modeOf(image) == EffectMode::array ? microphones : fourChannels;
  }
  return std::clamp<std::size_t>(even, needed, slotCount);
}

VELLUMIC_RT_CODE FadeSide outgoingSide(FrameEngine& engine, ConstImageView image,
                                       ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING {
  return {engine.frame.data(), image, mask, engine.runsPipeline && isArrayMode(image, mask)};
}

VELLUMIC_RT_CODE FadeSide incomingSide(FrameEngine& engine) noexcept VELLUMIC_NONBLOCKING {
  const ConstImageView image(engine.nextImage);
  const ConstMaskView mask(engine.nextMask);
  return {engine.fadeFrame.data(), image, mask,
          engine.nextRunsPipeline && isArrayMode(image, mask)};
}

VELLUMIC_RT_CODE void applyEffects(FrameEngine& engine, const FadeSide& outgoing,
                                   const FadeSide& incoming,
                                   float weight) noexcept VELLUMIC_NONBLOCKING {
  if (!outgoing.runsPipeline || !incoming.runsPipeline) {
    applySide(engine, outgoing);
    applySide(engine, incoming);
    return;
  }
  trimInput(frameOf(outgoing), outgoing.image);
  trimInput(frameOf(incoming), incoming.image);
  mixPositions(outgoing.slots, incoming.slots, weight);
  runPipeline(engine, modeOf(outgoing.image), frameOf(outgoing));
  std::copy_n(outgoing.slots, slotCount, incoming.slots);
  trimOutput(frameOf(outgoing), outgoing.image);
  trimOutput(frameOf(incoming), incoming.image);
}

}  // namespace vellumic
