#include "engine/EqualizerMirror.h"

#include <algorithm>

#include "filters/BiquadSection.h"

namespace vellumic {
namespace {

constexpr std::size_t coefficientsPerBand = 5;

struct SideEntries {
  Entry enables, coefficients;
};
constexpr std::array<SideEntries, equalizerSides> sides{{
    {Entry::equalizerEnableFirst, Entry::equalizerCoefficientsFirst},
    {Entry::equalizerEnableSecond, Entry::equalizerCoefficientsSecond},
}};

void mirrorBand(const EqualizerBandSettings& band, float sampleRate, std::size_t first,
                ImageView image) noexcept {
  const auto design = designBiquad(band.type, band.frequency, band.q, band.gain, sampleRate);
  if (!design) return;
  const std::array values{design->a1, design->a2, design->b0, design->b1, design->b2};
  std::ranges::copy(values, image.span().begin() + static_cast<std::ptrdiff_t>(first));
}

}  // namespace

void mirrorEqualizer(const EqualizerSettings& settings, float sampleRate,
                     ImageView image) noexcept {
  image[Entry::equalizerMaster] = settings.master;
  for (std::size_t side = 0; side < sides.size(); ++side)
    for (std::size_t band = 0; band < settings.bands[side].size(); ++band)
      image.at(index(sides[side].enables) + band) = settings.bands[side][band].enable;

  if (settings.master == 1.0F && settings.allBandsNeutral()) image[Entry::equalizerMaster] = 0.0F;
  if (image[Entry::equalizerMaster] == 0.0F) return;

  for (std::size_t side = 0; side < sides.size(); ++side)
    for (std::size_t band = 0; band < settings.bands[side].size(); ++band)
      if (settings.bands[side][band].enable == 1.0F)
        mirrorBand(settings.bands[side][band], sampleRate,
                   index(sides[side].coefficients) + coefficientsPerBand * band, image);
}

}  // namespace vellumic
