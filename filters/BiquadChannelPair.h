// Ten equaliser bands for each of two neighbouring channels.
//
// The two channels of a band are filtered side by side in vector registers; the result equals
// BiquadSection::process() bit by bit. A band that is off keeps its memory frozen.
#pragma once

#include <array>
#include <cstdint>

#include "filters/EqualizerRecord.h"
#include "platform/Realtime.h"

namespace vellumic {

class BiquadChannelPair {
 public:
  BiquadChannelPair() noexcept;

  // channel 0 or 1, band 0 to 9; anything else does nothing. Memories stay.
  void setBand(int channel, int band, float enable, int type, float frequency, float gain, float q,
               float sampleRate) noexcept;

  // Takes all designs and flags; memories stay. Real-time safe.
  void adopt(const EqualizerBands& bands) noexcept VELLUMIC_NONBLOCKING;

  // One sample of each channel, in place.
  void process(float& first, float& second) noexcept VELLUMIC_NONBLOCKING;

  // Zeroes the memories and nothing else.
  void reset() noexcept VELLUMIC_NONBLOCKING;

  // A copy of a band's section with its present memory (the scratch value is not kept).
  BiquadSection section(int channel, int band) const noexcept;
  bool enabled(int channel, int band) const noexcept;

 private:
  // What one band needs per sample, both channels interleaved: one cache line.
  struct alignas(64) Lanes {
    float memory[4];       // z1, z1', z2, z2'
    float denominator[4];  // a1, a1', a2, a2'
    float numerator[4];    // b1, b1', b2, b2'
    float direct[4];       // b0, b0', 0, 0
  };
  enum class Runs : std::uint8_t { neither, first, second, both };

  void pack(std::size_t band) noexcept;
  static void processSide(Lanes& lanes, std::size_t side, float& sample) noexcept;

  std::array<Lanes, equalizerBands> lanes_{};
  std::array<Runs, equalizerBands> runs_{};
  EqualizerBands bands_{};  // designs and flags; the memories live in lanes_
};

}  // namespace vellumic
