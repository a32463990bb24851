#include "array/OutputLevelControl.h"

#include <algorithm>

#include "parameters/Saturate.h"

namespace vellumic {
namespace {

constexpr std::size_t longestPiece = 64;  // samples that go through both stages at a time

}  // namespace

OutputLevelControl::OutputLevelControl() noexcept
    : levelStage(LevelControlSettings{}.levelStage),
      limiterStage(LevelControlSettings{}.limiterStage) {}

void OutputLevelControl::apply(const LevelControlSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  levelControlEnabled = settings.levelControlEnabled;
  limiterEnabled_ = settings.limiterEnabled;
  lookAheadEnabled_ = settings.lookAheadEnabled;
  levelStage.apply(settings.levelStage);
  limiterStage.apply(settings.limiterStage);
  lookAheadLength =
      std::clamp(saturatedInt(settings.lookAheadTime * sampleRate), 0, longestLookAhead);
}

void OutputLevelControl::process(std::span<float> samples) noexcept VELLUMIC_NONBLOCKING {
  if (!levelControlEnabled) return;
  while (!samples.empty()) {
    const std::size_t count = std::min(samples.size(), longestPiece);
    processPiece(samples.first(count));
    samples = samples.subspan(count);
  }
}

void OutputLevelControl::processPiece(std::span<float> samples) noexcept {
  std::array<float, longestPiece> store;
  const auto gains = std::span(store).first(samples.size());
  levelStage.gains(samples, gains);
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] *= gains[i];
  if (!limiterEnabled_) return;
  limiterStage.gains(samples, gains);
  if (lookAheadEnabled_)
    meetEarlierSamples(samples, gains);
  else
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] *= gains[i];
}

// The gain that the present sample asks for meets the sample of lookAheadLength ago.
void OutputLevelControl::meetEarlierSamples(std::span<float> samples,
                                            std::span<const float> gains) noexcept {
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (lookAheadIndex_ > lookAheadLength - 1) lookAheadIndex_ = 0;
    float& slot = delayLine_[static_cast<std::size_t>(lookAheadIndex_)];
    const float delayed = slot * gains[i];
    slot = samples[i];
    samples[i] = delayed;
    ++lookAheadIndex_;
  }
}

}  // namespace vellumic
