#include "filters/BiquadChannelPair.h"

#include "filters/FloatLanes.h"

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

void BiquadChannelPair::adopt(const EqualizerBands& bands) noexcept VELLUMIC_NONBLOCKING {
  bands_ = bands;
  for (std::size_t band = 0; band < lanes_.size(); ++band) pack(band);
}

void BiquadChannelPair::pack(std::size_t band) noexcept {
  Lanes& lanes = lanes_[band];
  for (std::size_t side = 0; side < bands_.size(); ++side) {
    const BiquadSection& section = bands_[side][band].section;
    lanes.denominator[side] = section.a1;
    lanes.denominator[side + 2] = section.a2;
    lanes.numerator[side] = section.b1;
    lanes.numerator[side + 2] = section.b2;
    lanes.direct[side] = section.b0;
  }
  runs_[band] =
      static_cast<Runs>((bands_[0][band].enabled ? 1 : 0) | (bands_[1][band].enabled ? 2 : 0));
}

// One side of a band, in the order of operations of BiquadSection::process().
void BiquadChannelPair::processSide(Lanes& lanes, std::size_t side, float& sample) noexcept {
  const float z1 = lanes.memory[side], z2 = lanes.memory[side + 2];
  const float w = sample - z1 * lanes.denominator[side] - z2 * lanes.denominator[side + 2];
  sample = w * lanes.direct[side] + z1 * lanes.numerator[side] + z2 * lanes.numerator[side + 2];
  lanes.memory[side + 2] = z1;
  lanes.memory[side] = w;
}

void BiquadChannelPair::process(float& first, float& second) noexcept VELLUMIC_NONBLOCKING {
  FloatLanes samples = FloatLanes::pair(first, second);
  for (std::size_t band = 0; band < lanes_.size(); ++band) {
    Lanes& lanes = lanes_[band];
    if (runs_[band] == Runs::both) [[likely]] {
      const FloatLanes memory = FloatLanes::load(lanes.memory);
      const FloatLanes feedback = memory * FloatLanes::load(lanes.denominator);
      const FloatLanes forward = memory * FloatLanes::load(lanes.numerator);
      const FloatLanes w = samples - feedback - feedback.upper();
      w.over(memory).store(lanes.memory);
      samples = w * FloatLanes::load(lanes.direct) + forward + forward.upper();
    } else if (runs_[band] != Runs::neither) {
      float sides[2];
      samples.storePair(sides);
      const std::size_t side = runs_[band] == Runs::first ? 0 : 1;
      processSide(lanes, side, sides[side]);
      samples = FloatLanes::pair(sides[0], sides[1]);
    }
  }
  float sides[2];
  samples.storePair(sides);
  first = sides[0];
  second = sides[1];
}

void BiquadChannelPair::reset() noexcept VELLUMIC_NONBLOCKING {
  for (Lanes& lanes : lanes_)
    for (float& memory : lanes.memory) memory = 0.0F;
}

BiquadSection BiquadChannelPair::section(int channel, int band) const noexcept {
  const auto side = static_cast<std::size_t>(channel), place = static_cast<std::size_t>(band);
  BiquadSection section = bands_.at(side).at(place).section;
  section.z1 = lanes_[place].memory[side];
  section.z2 = lanes_[place].memory[side + 2];
  return section;
}

bool BiquadChannelPair::enabled(int channel, int band) const noexcept {
  return bands_.at(static_cast<std::size_t>(channel)).at(static_cast<std::size_t>(band)).enabled;
}

}  // namespace vellumic
