// Up to 16 channels of rate conversion, fed one frame at a time, with a ring of one second behind.
//
// Latency: framesBeforeOutput(); the ring adds none while it is popped as fast as it fills.
//
// Threads: constructor, setChannels and setRates allocate and belong off the audio thread;
// pushFrame and pop are real-time safe.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "frontend/SampleRing.h"
#include "platform/Realtime.h"
#include "resample/CDSPResampler24.h"

namespace vellumic {

class ResamplerBank {
 public:
  static constexpr int maxChannels = 16;

  ResamplerBank();  // 2 channels, equal rates
  ResamplerBank(int channels, double sourceRate, double destinationRate);

  void setChannels(int channels);  // 1 to maxChannels, otherwise nothing; rebuilds
  // Hz. Nothing if both are unchanged.
  void setRates(double sourceRate, double destinationRate);

  // One sample per channel. True if the converters gave output, which is then in the ring.
  bool pushFrame(std::span<const float> samples) noexcept VELLUMIC_NONBLOCKING;
  // As SampleRing::pop.
  bool pop(ChannelArrays& target, int count) noexcept VELLUMIC_NONBLOCKING;

  // Frames that go in before the first output comes: the latency, in samples of the source rate.
  int framesBeforeOutput() const noexcept;

  int channels() const noexcept { return channels_; }
  double sourceRate() const noexcept { return sourceRate_; }
  double destinationRate() const noexcept { return destinationRate_; }

 private:
  void rebuild();

  static constexpr double transitionBand = 10.0;  // percent
  static constexpr int leastOutput = 100;         // room per channel, samples

  int channels_ = 2;
  double sourceRate_ = 2.0;
  double destinationRate_ = 2.0;
  SampleRing ring_;
  std::vector<std::unique_ptr<resample::CDSPResampler24>> resamplers_;
  ChannelArrays outputs_;
};

}  // namespace vellumic
