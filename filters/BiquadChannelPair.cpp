#include "filters/BiquadChannelPair.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "filters/BandDiagonal.h"

namespace vellumic {

BiquadChannelPair::BiquadChannelPair() noexcept {
  for (std::size_t band = 0; band < lanes_.size(); ++band) pack(band);
}

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
  for (std::size_t band = 0; band < lanes_.size(); ++band) pack(band);
}

void BiquadChannelPair::pack(std::size_t band) noexcept {
  BandLanes& lanes = lanes_[band];
  const auto allBits = std::bit_cast<float>(0xFFFFFFFFU);
  for (std::size_t side = 0; side < bands_.size(); ++side) {
    const auto& [section, on] = bands_[side][band];
    lanes.denominator[side] = section.a1;
    lanes.denominator[side + 2] = section.a2;
    lanes.numerator[side] = section.b1;
    lanes.numerator[side + 2] = section.b2;
    lanes.direct[side] = section.b0;
    lanes.mask[side] = lanes.mask[side + 2] = on ? allBits : 0.0F;
  }
  runs_[band] =
      static_cast<Runs>((bands_[0][band].enabled ? 1 : 0) | (bands_[1][band].enabled ? 2 : 0));
  allOn_ = std::ranges::all_of(runs_, [](Runs runs) { return runs == Runs::both; });
  allOff_ = std::ranges::all_of(runs_, [](Runs runs) { return runs == Runs::neither; });
}

VELLUMIC_RT_CODE void BiquadChannelPair::process(float& first,
                                                 float& second) noexcept VELLUMIC_NONBLOCKING {
  FloatLanes samples = FloatLanes::pair(first, second);
  if (allOn_) {
    for (BandLanes& band : lanes_) samples = band.process(samples);
  } else {
    for (std::size_t band = 0; band < lanes_.size(); ++band)
      if (runs_[band] != Runs::neither) samples = lanes_[band].processMasked(samples);
  }
  first = samples.first();
  second = samples.second();
}

VELLUMIC_RT_CODE void BiquadChannelPair::processFrames(
    float* samples, std::size_t stride, std::size_t frames) noexcept VELLUMIC_NONBLOCKING {
  if (allOff_) return;
  if (frames >= diagonalFrames) {
    runDiagonal(lanes_, allOn_, samples, stride, frames);
    return;
  }
  for (; frames > 0; --frames, samples += stride) process(samples[0], samples[1]);
}

VELLUMIC_RT_CODE void BiquadChannelPair::reset() noexcept VELLUMIC_NONBLOCKING {
  for (BandLanes& lanes : lanes_) std::ranges::fill(lanes.memory, 0.0F);
}

VELLUMIC_RT_CODE void BiquadChannelPair::restartBroken() noexcept VELLUMIC_NONBLOCKING {
  for (BandLanes& lanes : lanes_)
    for (std::size_t side = 0; side < bands_.size(); ++side) {
      float &z1 = lanes.memory[side], &z2 = lanes.memory[side + 2];
      if (!std::isfinite(z1) || !std::isfinite(z2)) z1 = z2 = 0.0F;
    }
}

BiquadSection BiquadChannelPair::section(int channel, int band) const {
  const auto side = static_cast<std::size_t>(channel), place = static_cast<std::size_t>(band);
  BiquadSection section = bands_.at(side).at(place).section;
  section.z1 = lanes_[place].memory[side];
  section.z2 = lanes_[place].memory[side + 2];
  return section;
}

bool BiquadChannelPair::enabled(int channel, int band) const {
  return bands_.at(static_cast<std::size_t>(channel)).at(static_cast<std::size_t>(band)).enabled;
}

}  // namespace vellumic
