#include "parameters/EqualizerSettings.h"

#include <algorithm>

#include "parameters/Saturate.h"

namespace vellumic {
namespace {

int filterType(float stored) noexcept {
  const int type = saturatedInt(stored);
  return type >= 0 && type <= 7 ? type : 0;
}

}  // namespace

EqualizerSettings EqualizerSettings::from(RawView raw) noexcept {
  EqualizerSettings settings;
  settings.master = value(raw, Raw::equalizerMaster);
  for (int side = 0; side < equalizerSides; ++side) {
    for (int band = 0; band < equalizerBands; ++band) {
      const auto stored = [&](BandField field) { return value(raw, bandSlot(side, band, field)); };
      settings.bands[static_cast<std::size_t>(side)][static_cast<std::size_t>(band)] = {
          .enable = stored(BandField::enable),
          .type = filterType(stored(BandField::type)),
          .frequency = stored(BandField::frequency),
          .gain = stored(BandField::gain),
          .q = stored(BandField::q)};
    }
  }
  return settings;
}

bool EqualizerSettings::allBandsNeutral() const noexcept {
  return std::ranges::all_of(bands, [](const auto& side) {
    return std::ranges::all_of(side, [](const EqualizerBandSettings& band) {
      return band.gain == 1.0F || band.enable == 0.0F;
    });
  });
}

}  // namespace vellumic
