#include "filters/EqualizerRecord.h"

#include <type_traits>

namespace vellumic {

static_assert(std::is_trivially_copyable_v<EqualizerRecord>);

void EqualizerBand::set(float enable, int type, float frequency, float gain, float q,
                        float sampleRate) noexcept {
  section.set(type, frequency, gain, q, sampleRate);
  const bool unityPeak = type == static_cast<int>(BiquadType::Peak) && gain == 1.0F;
  enabled = enable == 1.0F && !unityPeak;
}

EqualizerRecord EqualizerRecord::design(const EqualizerSettings& settings, float sampleRate,
                                        const EqualizerRecord& previous) noexcept {
  EqualizerRecord record = previous;
  record.active = settings.master == 1.0F;
  if (!record.active) return record;
  for (std::size_t side = 0; side < record.bands.size(); ++side) {
    for (std::size_t band = 0; band < record.bands[side].size(); ++band) {
      const EqualizerBandSettings& wanted = settings.bands[side][band];
      record.bands[side][band].set(wanted.enable, wanted.type, wanted.frequency, wanted.gain,
                                   wanted.q, sampleRate);
    }
  }
  return record;
}

}  // namespace vellumic
