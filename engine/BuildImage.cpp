#include "engine/BuildImage.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/EqualizerMirror.h"
#include "engine/FrameEngine.h"

namespace vellumic {
namespace {

constexpr std::array sampleRates{16000.0F, 22050.0F, 24000.0F, 44100.0F,
                                 48000.0F, 88200.0F, 96000.0F, 192000.0F};

// NaN falls to 1 like everything outside the range.
float trimOr1(float gain) noexcept { return gain >= 0.1F && gain <= 10.0F ? gain : 1.0F; }

float largest(ConstImageView image, Entry a, Entry b, Entry c) noexcept {
  return std::max({image[a], image[b], image[c]});
}

// Frames for which an incoming set runs unheard while its filters fill. No stage of this system
// announces a latency, so the sum is 0 today.
float holdLengthOf(ConstImageView image) noexcept {
  float length = 0.0F;
  if (image[Entry::latencySwitch2] == 1.0F)
    length = largest(image, Entry::latency2a, Entry::latency2b, Entry::latency2c);
  if (image[Entry::latencySwitch1] == 1.0F) length += image[Entry::latency1];
  if (image[Entry::latencySwitch3] == 1.0F)
    length += largest(image, Entry::latency3a, Entry::latency3b, Entry::latency3c);
  return length;
}

void buildFade(std::span<float, rawCount> raw, ImageView image) noexcept {
  const float rate = image[Entry::sampleRate];
  image[Entry::fadeLength] = rate == 48000.0F ? 10000.0F : std::round(rate * 0.20833333F);
  float& request = raw[index(Raw::fadeRequest)];
  image[Entry::fadeRequested] = request;
  request = 0.0F;
  image[Entry::holdLength] = holdLengthOf(ConstImageView(image.span()));
}

std::uint32_t buildPipeline(FrameEngine& engine, RawView raw, ImageView image) {
  const PipelineSettings& settings =
      engine.handover.pipeline.build(raw, StreamFacts::from(ConstImageView(image.span())));
  image[Entry::inputGain] = trimOr1(value(raw, Raw::inputGain));
  image[Entry::outputGain] = trimOr1(value(raw, Raw::outputGain));
  std::uint32_t flags = 0;
  if (settings.echoCancelEnabled) flags |= effect_flags::echoCancellation;
  if (settings.beamformerEnabled) flags |= effect_flags::beamforming;
  if (settings.postfilterEnabled) flags |= effect_flags::noiseSuppression;
  if (settings.level.levelControlEnabled) flags |= effect_flags::automaticGain;
  return flags;
}

void buildEqualizer(FrameEngine& engine, RawView raw, ImageView image) noexcept {
  EngineHandover& handover = engine.handover;
  const EqualizerSettings settings = EqualizerSettings::from(raw);
  const float rate = image[Entry::sampleRate];
  handover.equalizer = EqualizerRecord::design(settings, rate, handover.equalizer);
  handover.equalizerWaiting = true;
  mirrorEqualizer(settings, rate, image);
}

// Each effect that runs also marks its image entry. The equaliser's entry has no writer, on
// purpose: it is never reported as an effect.
std::uint32_t markEffects(std::uint32_t flags, ImageView image) noexcept {
  if (image[Entry::equalizerEffect] == 1.0F) flags |= effect_flags::equalizer;
  if (flags & effect_flags::echoCancellation) image[Entry::echoEffect] = 1.0F;
  if (flags & effect_flags::beamforming) image[Entry::beamformingEffect] = 1.0F;
  if (flags & effect_flags::noiseSuppression) image[Entry::noiseEffect] = 1.0F;
  if (flags & effect_flags::automaticGain) image[Entry::levelEffect] = 1.0F;
  return flags;
}

}  // namespace

VELLUMIC_RT_CODE void buildMask(ConstImageView image, MaskView mask) noexcept VELLUMIC_NONBLOCKING {
  for (std::size_t i = 0; i < imageSize; ++i) mask.at(i) = image.at(i) != 0.0F ? 1 : 0;
}

std::uint32_t buildImage(FrameEngine& engine, std::span<float, rawCount> raw, ImageView image,
                         MaskView mask, ProcessingMode processingMode, EffectMode effectMode) {
  const bool knownRate =
      std::ranges::find(sampleRates, image[Entry::sampleRate]) != sampleRates.end();
  image[Entry::effectEnable] = knownRate ? value(raw, Raw::masterEnable) : 0.0F;
  image[Entry::category] = static_cast<float>(categoryOf(processingMode));
  image[Entry::effectMode] = static_cast<float>(effectMode);
  image[Entry::rawCopy] = value(raw, Raw::imageCopy);
  clear(image, Entry::effectStates, Entry::lastEffectState);
  clear(image, Entry::echoEffect, Entry::levelEffect);

  std::uint32_t flags = 0;
  if (effectMode == EffectMode::array || effectMode == EffectMode::arrayFourChannel)
    flags = buildPipeline(engine, raw, image);
  else if (effectMode == EffectMode::equalizer)
    buildEqualizer(engine, raw, image);

  buildFade(raw, image);
  flags = markEffects(flags, image);
  image[Entry::constantOne] = 1.0F;
  buildMask(ConstImageView(image.span()), mask);
  return flags;
}

}  // namespace vellumic
