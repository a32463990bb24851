// Ten equaliser bands for each of two neighbouring channels.
//
// The two channels of a band are filtered side by side in vector registers; the result equals
// BiquadSection::process() bit by bit. A band that is off keeps its memory frozen.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "filters/BandLanes.h"
#include "filters/EqualizerRecord.h"
#include "platform/Realtime.h"

namespace vellumic {

class BiquadChannelPair {
 public:
  // channel 0 or 1, band 0 to 9; anything else does nothing. Memories stay.
  void setBand(int channel, int band, float enable, int type, float frequency, float gain, float q,
               float sampleRate) noexcept;

  // Takes all designs and flags; memories stay. Real-time safe.
  void adopt(const EqualizerBands& bands) noexcept VELLUMIC_NONBLOCKING;

  // One sample of each channel, in place.
  void process(float& first, float& second) noexcept VELLUMIC_NONBLOCKING;

  // samples[0] and samples[1] of every `stride` floats, in place: the same as process() on each
  // frame, about three times as fast in blocks.
  void processFrames(float* samples, std::size_t stride,
                     std::size_t frames) noexcept VELLUMIC_NONBLOCKING;

  // Zeroes the memories and nothing else.
  void reset() noexcept VELLUMIC_NONBLOCKING;

  // Zeroes those of each section in which one is not finite: no sample would ever mend it.
  void restartBroken() noexcept VELLUMIC_NONBLOCKING;

  // A copy of a band's section with its present memory (the scratch value is not kept).
  BiquadSection section(int channel, int band) const;
  bool enabled(int channel, int band) const;

 private:
  enum class Runs : std::uint8_t { neither, first, second, both };

  void pack(std::size_t band) noexcept;
  void processOne(float* samples) noexcept;

  BandLanes lanes_{};  // of the bands set or adopted; the others are off
  std::array<Runs, equalizerBands> runs_{};
  bool allOn_ = false;
  bool allOff_ = true;
  EqualizerBands bands_{};  // designs and flags; the memories live in lanes_
};

}  // namespace vellumic
