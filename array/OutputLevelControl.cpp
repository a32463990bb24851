#include "array/OutputLevelControl.h"

#include <algorithm>

#include "parameters/Saturate.h"

namespace vellumic {

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

void OutputLevelControl::process(float input, float& output) noexcept VELLUMIC_NONBLOCKING {
  output = input;
  if (!levelControlEnabled) return;
  const float levelled = levelStage.process(input);
  output = levelled;
  if (!limiterEnabled_) return;
  output = limiterStage.process(levelled);
  if (!lookAheadEnabled_) return;

  // The gain that the present sample asks for meets the sample of lookAheadLength ago.
  if (lookAheadIndex_ > lookAheadLength - 1) lookAheadIndex_ = 0;
  float& slot = delayLine_[static_cast<std::size_t>(lookAheadIndex_)];
  output = slot * limiterStage.gain;
  slot = levelled;
  ++lookAheadIndex_;
}

}  // namespace vellumic
