#include "filters/BiquadChannelPair.h"

#include <algorithm>
#include <cmath>

#include "filters/SamplePair.h"
#include "filters/kernels/BandDiagonal.h"

namespace vellumic {
namespace {

static_assert(BandLanes::bands == equalizerBands && equalizerSides == 2);

// One sample of each channel through one band. Not allOn: where the band is off the sample passes
// and the memory stays.
template <bool allOn>
SamplePair throughBand(BandLanes& lanes, std::size_t band, const SamplePair& x) noexcept {
  const std::size_t at = 2 * band;
  const SamplePair z1 = loadPair(lanes.z1 + at), z2 = loadPair(lanes.z2 + at);
  const SamplePair w = x - z1 * loadPair(lanes.a1 + at) - z2 * loadPair(lanes.a2 + at);
  const SamplePair y =
      w * loadPair(lanes.b0 + at) + z1 * loadPair(lanes.b1 + at) + z2 * loadPair(lanes.b2 + at);
  if constexpr (allOn) {
    storePair(z1, lanes.z2 + at);
    storePair(w, lanes.z1 + at);
    return y;
  }
  const auto on = loadPair(lanes.on + at) != SamplePair(0.0F);
  storePair(xsimd::select(on, z1, z2), lanes.z2 + at);
  storePair(xsimd::select(on, w, z1), lanes.z1 + at);
  return xsimd::select(on, y, x);
}

}  // namespace

void BiquadChannelPair::setBand(int channel, int band, float enable, int type, float frequency,
                                float gain, float q, float sampleRate) noexcept {
  if (channel < 0 || channel >= equalizerSides || band < 0 || band >= equalizerBands) return;
  const auto side = static_cast<std::size_t>(channel), place = static_cast<std::size_t>(band);
  bands_[side][place].set(enable, type, frequency, gain, q, sampleRate);
  pack(place);
}

VELLUMIC_RT_CODE void BiquadChannelPair::adopt(const EqualizerBands& bands) noexcept
    VELLUMIC_NONBLOCKING {
  bands_ = bands;
  for (std::size_t band = 0; band < runs_.size(); ++band) pack(band);
}

void BiquadChannelPair::pack(std::size_t band) noexcept {
  for (std::size_t side = 0; side < bands_.size(); ++side) {
    const auto& [section, on] = bands_[side][band];
    const std::size_t at = 2 * band + side;
    lanes_.a1[at] = section.a1;
    lanes_.a2[at] = section.a2;
    lanes_.b0[at] = section.b0;
    lanes_.b1[at] = section.b1;
    lanes_.b2[at] = section.b2;
    lanes_.on[at] = on ? 1.0F : 0.0F;
  }
  runs_[band] =
      static_cast<Runs>((bands_[0][band].enabled ? 1 : 0) | (bands_[1][band].enabled ? 2 : 0));
  allOn_ = std::ranges::all_of(runs_, [](Runs runs) { return runs == Runs::both; });
  allOff_ = std::ranges::all_of(runs_, [](Runs runs) { return runs == Runs::neither; });
}

VELLUMIC_RT_CODE void BiquadChannelPair::process(float& first,
                                                 float& second) noexcept VELLUMIC_NONBLOCKING {
  float both[2] = {first, second};
  processOne(both);
  first = both[0];
  second = both[1];
}

VELLUMIC_RT_CODE void BiquadChannelPair::processOne(float* samples) noexcept {
  SamplePair pair = loadPair(samples);
  if (allOn_) {
    for (std::size_t band = 0; band < runs_.size(); ++band)
      pair = throughBand<true>(lanes_, band, pair);
  } else {
    for (std::size_t band = 0; band < runs_.size(); ++band)
      if (runs_[band] != Runs::neither) pair = throughBand<false>(lanes_, band, pair);
  }
  storePair(pair, samples);
}

VELLUMIC_RT_CODE void BiquadChannelPair::processFrames(
    float* samples, std::size_t stride, std::size_t frames) noexcept VELLUMIC_NONBLOCKING {
  if (allOff_) return;
  const EqualizerKernels& kernels = equalizerKernels();
  if (frames >= kernels.leastFrames) {
    kernels.run(lanes_, allOn_, samples, stride, frames);
    return;
  }
  for (; frames > 0; --frames, samples += stride) processOne(samples);
}

VELLUMIC_RT_CODE void BiquadChannelPair::reset() noexcept VELLUMIC_NONBLOCKING {
  std::ranges::fill(lanes_.z1, 0.0F);
  std::ranges::fill(lanes_.z2, 0.0F);
}

VELLUMIC_RT_CODE void BiquadChannelPair::restartBroken() noexcept VELLUMIC_NONBLOCKING {
  for (std::size_t lane = 0; lane < BandLanes::room; ++lane) {
    float &z1 = lanes_.z1[lane], &z2 = lanes_.z2[lane];
    if (!std::isfinite(z1) || !std::isfinite(z2)) z1 = z2 = 0.0F;
  }
}

BiquadSection BiquadChannelPair::section(int channel, int band) const {
  const auto side = static_cast<std::size_t>(channel), place = static_cast<std::size_t>(band);
  BiquadSection section = bands_.at(side).at(place).section;
  section.z1 = lanes_.z1[2 * place + side];
  section.z2 = lanes_.z2[2 * place + side];
  return section;
}

bool BiquadChannelPair::enabled(int channel, int band) const {
  return bands_.at(static_cast<std::size_t>(channel)).at(static_cast<std::size_t>(band)).enabled;
}

}  // namespace vellumic
