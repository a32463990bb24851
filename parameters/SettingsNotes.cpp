#include "parameters/SettingsNotes.h"

#include "parameters/EqualizerSettings.h"
#include "parameters/PipelineSettings.h"
#include "parameters/SettingValue.h"

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

std::optional<std::string> unstableBandNote(const RawValues& values, int rate) {
  const EqualizerSettings settings = EqualizerSettings::from(values);
  if (settings.master != 1.0F) return std::nullopt;
  for (int side = 0; side < equalizerSides; ++side)
    for (int band = 0; band < equalizerBands; ++band) {
      const EqualizerBandSettings& b =
          settings.bands[static_cast<std::size_t>(side)][static_cast<std::size_t>(band)];
      if (b.enable != 1.0F || b.type == 0 || b.frequency <= 0.5F * static_cast<float>(rate))
        continue;
      // A peak that changes nothing is left out.
      if (b.gain == 1.0F && filterTypeNames()[static_cast<std::size_t>(b.type)] == "peak") continue;
      const Parameter& parameter = *findParameter(bandSlot(side, band, BandField::frequency));
      return parameter.name + " of " + decimal(b.frequency) + " is above half the rate of " +
             std::to_string(rate) + " Hz, where most filters are unstable (up to 770 dBFS " +
             "measured); lower it or switch the band off";
    }
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
