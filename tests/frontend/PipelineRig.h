// A pipeline with its hand-over and settings by name, for the tests of this folder.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "frontend/ArrayPipeline.h"

namespace vellumic {

inline constexpr std::array arrayStages{Raw::beamformer, Raw::noisePostfilter,
                                        Raw::echoCancellation, Raw::levelControl};

struct PipelineRig {
  // Factory settings but with the array stages off; outside the speech mode; no rate conversion.
  explicit PipelineRig(LoopbackOpener opener = {}) : pipeline(std::move(opener)) {
    for (std::size_t i = 0; i < rawCount; ++i) raw[i] = factoryValue(static_cast<Raw>(i));
    setStages(0.0F);
    stream.deviceRate = 16000.0F;
    apply();
  }

  void set(Raw slot, float value) { raw[index(slot)] = value; }
  void setStages(float value) {
    for (const Raw stage : arrayStages) set(stage, value);
  }
  void apply() { pipeline.applyParameters(handover, raw, stream); }
  void begin(int channels, bool fourChannelForm = false) {
    handover.prepareStream(1024, channels, fourChannelForm);
    apply();
  }

  using Frame = std::array<float, 12>;
  Frame run(Frame frame) {
    pipeline.processFrame(frame.data());
    return frame;
  }

  std::array<float, rawCount> raw{};
  StreamFacts stream;
  PipelineHandover handover;
  ArrayPipeline pipeline;
};

// White noise, standard deviation 0.1.
class Noise {
 public:
  explicit Noise(unsigned seed) : random_(seed) {}
  float operator()() { return shape_(random_); }
  std::vector<float> take(std::size_t count) {
    std::vector<float> samples(count);
    for (float& sample : samples) sample = (*this)();
    return samples;
  }

 private:
  std::mt19937 random_;
  std::normal_distribution<float> shape_{0.0F, 0.1F};
};

}  // namespace vellumic
