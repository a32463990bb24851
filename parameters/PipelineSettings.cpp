#include "parameters/PipelineSettings.h"

#include <array>

#include "parameters/Binding.h"

namespace vellumic {
namespace {

using Pipeline = PipelineSettings;
constexpr auto pipelineBindings = std::to_array<Binding<Pipeline>>({
    {Raw::masterEnable, &Pipeline::enabled},
    {Raw::beamformer, &Pipeline::beamformerEnabled},
    {Raw::noisePostfilter, &Pipeline::postfilterEnabled},
    {Raw::echoCancellation, &Pipeline::echoCancelEnabled},
    {Raw::referenceMonitor, &Pipeline::referenceMonitor},
    {Raw::bandTest, &Pipeline::bandTest},
    {Raw::bandTestPasses,
     IntegerField<Pipeline>{&Pipeline::bandTestPasses, 0, 100, OutOfRange::clamp}},
});

int rateOr(float stored, int otherwise) noexcept {
  const int rate = saturatedInt(stored);
  return rate >= 1 && rate <= 192000 ? rate : otherwise;
}

}  // namespace

RunState runStateOf(float category) noexcept {
  if (category == static_cast<float>(Category::raw)) return RunState::off;
  if (category == static_cast<float>(Category::speech)) return RunState::speech;
  return RunState::general;
}

StreamFacts StreamFacts::from(ConstImageView image) noexcept {
  return {.category = image[Entry::category],
          .deviceRate = image[Entry::sampleRate],
          .muted = image[Entry::volumeMaster] == 0.0F};
}

int acceptedBlockSize(float stored, int present) noexcept {
  const int size = saturatedInt(stored, present) & ~1;
  if (size < 128 || size > 16384) return present;
  int rest = size;
  for (const int factor : {2, 3, 5})
    while (rest % factor == 0) rest /= factor;
  return rest == 1 ? size : present;
}

void PipelineSettings::update(RawView raw, const StreamFacts& stream) noexcept {
  decode<Pipeline>(raw, pipelineBindings, *this);
  echo.update(raw);
  noiseEstimator.update(raw);
  spectralGain.update(raw);
  beamformer.update(raw);
  level.update(raw);
  blockSize = acceptedBlockSize(value(raw, Raw::blockSize), blockSize);
  delaySearchBlocks = value(raw, Raw::delaySearchBlocks) == 8.0F ? 8 : 4;
  internalRate = rateOr(value(raw, Raw::internalRate), 16000);
  deviceRate = rateOr(stream.deviceRate, 48000);
  echoBypass = stream.muted;

  runState = runStateOf(stream.category);
  if (runState == RunState::speech) {
    postfilterEnabled = true;
    echoCancelEnabled = true;
  } else if (runState == RunState::off || !isOn(raw, Raw::keepInDefaultMode)) {
    // The run state has the last word, also over the level control's own switch.
    enabled = false;
    echoCancelEnabled = false;
    beamformerEnabled = false;
    postfilterEnabled = false;
    level.levelControlEnabled = false;
  }
}

}  // namespace vellumic
