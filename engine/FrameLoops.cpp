#include "engine/FrameLoops.h"

#include <algorithm>

#include "engine/ApplyEffect.h"
#include "engine/FadeClock.h"
#include "engine/FrameEngine.h"
#include "engine/SpeakerFrame.h"

namespace vellumic {

namespace {

// Copies frames between layouts of different width; what the source does not have is 0.
VELLUMIC_RT_CODE void copyFrames(const float* from, std::size_t fromWidth, float* to,
                                 std::size_t toWidth, std::size_t frames) noexcept {
  if (fromWidth == toWidth) {
    std::copy_n(from, frames * fromWidth, to);
    return;
  }
  const std::size_t common = std::min(fromWidth, toWidth);
  for (std::size_t n = 0; n < frames; ++n) {
    std::copy_n(from, common, to);
    std::fill_n(to + common, toWidth - common, 0.0F);
    from += fromWidth;
    to += toWidth;
  }
}

}  // namespace

VELLUMIC_RT_CODE void forwardFrames(FrameEngine& engine, const FrameStream& stream,
                                    const ParameterSet& set) noexcept VELLUMIC_NONBLOCKING {
  const std::size_t width = runWidth(engine, set.image, set.mask, stream.inputChannels);
  const float* input = stream.input;
  float* output = stream.output;
  for (std::size_t left = stream.frames; left > 0;) {
    const std::size_t frames = std::min(left, engine.run.size() / width);
    copyFrames(input, stream.inputChannels, engine.run.data(), width, frames);
    applyEffect(engine, {engine.run.data(), width, frames}, set.image, set.mask);
    stepFade(set.fade, set.image, set.mask, frames);
    copyFrames(engine.run.data(), width, output, stream.outputChannels, frames);
    input += frames * stream.inputChannels;
    output += frames * stream.outputChannels;
    left -= frames;
  }
}

VELLUMIC_RT_CODE void fadeFrames(FrameEngine& engine, const FrameStream& stream,
                                 const ParameterSet& set) noexcept VELLUMIC_NONBLOCKING {
  const FadeSide outgoing = outgoingSide(engine, set.image, set.mask);
  const FadeSide incoming = incomingSide(engine);
  const bool byPosition = outgoing.runsPipeline || incoming.runsPipeline;
  const float* input = stream.input;
  float* output = stream.output;
  for (std::uint32_t n = 0; n < stream.frames; ++n) {
    const float weight = set.fade[Fade::weight];
    engine.frame.fill(0.0F);
    if (byPosition)
      readPositions(input, stream.inputChannels, outgoing.slots);
    else
      readSpeakers(input, engine.inputIndex, set.mask, outgoing.slots);
    engine.fadeFrame = engine.frame;
    applyEffects(engine, outgoing, incoming, weight);
    stepFade(set.fade, set.image, set.mask);
    if (byPosition) {
      mixPositions(outgoing.slots, incoming.slots, weight);
      writePositions(outgoing.slots, stream.outputChannels, output);
    } else {
      mixSpeakers(outgoing.slots, incoming.slots, weight, set.mask);
      writeSpeakers(outgoing.slots, engine.outputIndex, set.mask, output);
    }
    input += stream.inputChannels;
    output += stream.outputChannels;
  }
}

VELLUMIC_RT_CODE void passThroughFrames(FrameEngine& engine, const FrameStream& stream,
                                        ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING {
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
