// Up to 16 channels of rate conversion, fed in runs of frames, with a ring of one second behind.
// A sample that is not finite, or absurdly large, enters as 0.
//
// Latency: framesBeforeOutput(); the ring adds none while it is popped as fast as it fills.
//
// Threads: constructor, setChannels and setRates allocate and belong off the audio thread;
// push and pop are real-time safe.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "frontend/SampleRing.h"
#include "platform/Realtime.h"
#include "resample/CDSPResampler24.h"

namespace vellumic {

// Samples of several channels, wherever they lie.
struct SampleView {
  const float* samples;
  std::ptrdiff_t fromSample, fromChannel;  // to the next, in floats
  int channels;
};

class ResamplerBank {
 public:
  static constexpr int maxChannels = 16;
  static constexpr int longestRun = 64;

  ResamplerBank();  // 2 channels, equal rates
  // `runLength`: frames of one push, 1 to longestRun. The memory grows with it and with the ratio
  // of the rates.
  ResamplerBank(int channels, double sourceRate, double destinationRate,
                int runLength = longestRun);

  void setChannels(int channels);  // 1 to maxChannels, otherwise nothing; rebuilds
  // Hz. Nothing if both are unchanged.
  void setRates(double sourceRate, double destinationRate);

  // `count` frames, at most runLength(); channels beyond those of the view get zeros. made[n]: how
  // many output samples the n-th frame brought, which are then in the ring. Returns their sum.
  int push(const SampleView& input, int count, std::span<int> made) noexcept VELLUMIC_NONBLOCKING;
  // While all channels carry one signal only the first is converted, and the others of the ring
  // mean nothing. When that ends they go on from where the first one is.
  void setAlike(bool alike) noexcept VELLUMIC_NONBLOCKING;
  bool alike() const noexcept { return alike_; }
  // Frames after which nothing older has a part in what a converter gives.
  int memory() const noexcept { return resamplers_.front()->memory(); }

  // As SampleRing::pop.
  bool pop(ChannelArrays& target, int count, int first = 0) noexcept VELLUMIC_NONBLOCKING;
  int available() const noexcept { return ring_.available(); }

  // Frames that go in before the first output comes: the latency, in samples of the source rate.
  int framesBeforeOutput() const noexcept;

  int runLength() const noexcept { return runLength_; }
  int channels() const noexcept { return channels_; }
  double sourceRate() const noexcept { return sourceRate_; }
  double destinationRate() const noexcept { return destinationRate_; }

 private:
  void rebuild();
  void take(const SampleView& input, std::size_t channel, int count) noexcept;
  void convert(std::size_t channel, int count) noexcept;

  static constexpr double transitionBand = 10.0;  // percent

  int channels_ = 2;
  bool alike_ = false;
  double sourceRate_ = 2.0;
  double destinationRate_ = 2.0;
  int runLength_ = longestRun;
  SampleRing ring_;
  std::vector<std::unique_ptr<resample::CDSPResampler24>> resamplers_;
  std::array<double, longestRun> input_{};
  ChannelArrays outputs_;
};

}  // namespace vellumic
