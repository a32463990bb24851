#include "engine/FrameLoops.h"

#include <algorithm>

#include "engine/ApplyEffect.h"
#include "engine/FadeClock.h"
#include "engine/FrameEngine.h"
#include "engine/SpeakerFrame.h"

namespace vellumic {

VELLUMIC_RT_CODE void forwardFrames(FrameEngine& engine, const FrameStream& stream,
                                    const ParameterSet& set) noexcept {
  const std::uint32_t read = std::min<std::uint32_t>(stream.inputChannels, slotCount);
  const std::uint32_t written = std::min<std::uint32_t>(stream.outputChannels, slotCount);
  const float* input = stream.input;
  float* output = stream.output;
  for (std::uint32_t n = 0; n < stream.frames; ++n) {
    engine.frame.fill(0.0F);
    std::copy_n(input, read, engine.frame.begin());
    applyEffect(engine, engine.frame.data(), set.image, set.mask);
    stepFade(set.fade, set.image, set.mask);
    std::copy_n(engine.frame.begin(), written, output);
    std::fill_n(output + written, stream.outputChannels - written, 0.0F);
    input += stream.inputChannels;
    output += stream.outputChannels;
  }
}

VELLUMIC_RT_CODE void fadeFrames(FrameEngine& engine, const FrameStream& stream,
                                 const ParameterSet& set) noexcept {
  const ConstImageView nextImage(engine.nextImage);
  const ConstMaskView nextMask(engine.nextMask);
  const float* input = stream.input;
  float* output = stream.output;
  for (std::uint32_t n = 0; n < stream.frames; ++n) {
    const float weight = set.fade[Fade::weight];
    engine.frame.fill(0.0F);
    readSpeakers(input, engine.inputIndex, set.mask, engine.frame.data());
    engine.fadeFrame = engine.frame;
    applyEffects(engine, engine.frame.data(), set.image, set.mask, engine.fadeFrame.data(),
                 nextImage, nextMask, weight);
    mixSpeakers(engine.frame.data(), engine.fadeFrame.data(), weight, set.mask);
    stepFade(set.fade, set.image, set.mask);
    writeSpeakers(engine.frame.data(), engine.outputIndex, set.mask, output);
    input += stream.inputChannels;
    output += stream.outputChannels;
  }
}

VELLUMIC_RT_CODE void passThroughFrames(FrameEngine& engine, const FrameStream& stream,
                                        ConstMaskView mask) noexcept {
  const float* input = stream.input;
  float* output = stream.output;
  for (std::uint32_t n = 0; n < stream.frames; ++n) {
    engine.frame.fill(0.0F);
    readSpeakers(input, engine.inputIndex, mask, engine.frame.data());
    writeSpeakers(engine.frame.data(), engine.outputIndex, mask, output);
    input += stream.inputChannels;
    output += stream.outputChannels;
  }
}

}  // namespace vellumic
