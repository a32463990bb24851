#include "engine/PrepareImage.h"

#include <algorithm>

#include "engine/BuildImage.h"
#include "engine/FrameEngine.h"
#include "parameters/Saturate.h"

namespace vellumic {
namespace {

constexpr int streamBlockSize = 1024;  // samples at the internal rate
constexpr int frameReferences = 2;     // carried by a four-channel frame
constexpr std::size_t fadeMarks = 40;  // two groups of ten 8-byte marks at the block's end

void preparePipeline(PipelineHandover& handover, EffectMode mode, int channels) {
  if (mode == EffectMode::array)
    handover.prepareStream(streamBlockSize, channels, false);
  else if (mode == EffectMode::arrayFourChannel)
    handover.prepareStream(streamBlockSize, channels - frameReferences, true);
}

}  // namespace

bool prepareImage(FrameEngine& engine, FadeView fadeState, ImageView image, MaskView mask) {
  clear(image, Entry::effectStates, Entry::lastEffectState);
  clear(image, Entry::inputLowFrequency, Entry::outputBacks);
  clear(image, Entry::extraSpeakers, Entry::lastExtraSpeakers);
  image[Entry::outputVendor] = 0.0F;
  std::ranges::fill(fadeState.span().last<fadeMarks>(), 0.0F);

  const auto mode = static_cast<EffectMode>(saturatedInt(image[Entry::effectMode]));
  const int channels = std::clamp(saturatedInt(image[Entry::inputChannels]), 0, slotCount);
  if (mode == EffectMode::equalizer)
    engine.equalizer.setChannelCount(static_cast<unsigned>(channels));

  image[Entry::inputGain] = 1.0F;
  image[Entry::outputGain] = 1.0F;

  const float category = image[Entry::category];
  const bool readied = category == static_cast<float>(Category::speech) ||
                       category == static_cast<float>(Category::other);
  if (readied) preparePipeline(engine.handover.pipeline, mode, channels);
  buildMask(ConstImageView(image.span()), mask);
  return readied && mode == EffectMode::array;
}

}  // namespace vellumic
