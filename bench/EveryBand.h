// The factory settings with all ten bands of both channels at work.
#pragma once

#include "parameters/Catalogue.h"

namespace vellumic::bench {

inline RawValues everyBand() {
  constexpr float lowest = 24.0F;  // Hz; an octave from band to band
  RawValues values = factorySettings();
  values[index(Raw::equalizerMaster)] = 1.0F;
  for (const int side : {0, 1})
    for (int band = 0; band < equalizerBands; ++band) {
      const auto set = [&](BandField field, float value) {
        values[index(bandSlot(side, band, field))] = value;
      };
      set(BandField::enable, 1.0F);
      set(BandField::type, 1.0F);
      set(BandField::frequency, lowest * static_cast<float>(1 << band));
      set(BandField::gain, band % 2 == 0 ? 1.4F : 0.7F);
      set(BandField::q, 1.0F);
    }
  return values;
}

}  // namespace vellumic::bench
