#include "parameters/SettingsNotes.h"

#include "parameters/PipelineSettings.h"

namespace vellumic {
namespace {

PipelineSettings inMode(Category category, const RawValues& values) {
  PipelineSettings settings;
  settings.update(values, {.category = static_cast<float>(category)});
  return settings;
}

}  // namespace

std::optional<std::string> speechModeNote(const RawValues& values) {
  if (!inMode(Category::speech, values).runs()) return std::nullopt;
  const bool echoOff = !isOn(values, Raw::echoCancellation);
  const bool noiseOff = !isOn(values, Raw::noisePostfilter);
  if (echoOff && noiseOff)
    return "the speech mode runs echo cancellation and noise suppression, although echo.enabled "
           "and noise.enabled are off";
  if (echoOff) return "the speech mode runs echo cancellation, although echo.enabled is off";
  if (noiseOff) return "the speech mode runs noise suppression, although noise.enabled is off";
  return std::nullopt;
}

std::optional<std::string> internalRateNote(const RawValues& before, const RawValues& after) {
  const int from = inMode(Category::other, before).internalRate;
  const int to = inMode(Category::other, after).internalRate;
  if (from == to) return std::nullopt;
  return "pipeline.internal_rate_hz goes from " + std::to_string(from) + " to " +
         std::to_string(to) + ": a running stream cancels no echo from then until its next lock";
}

}  // namespace vellumic
