// A pipeline with its hand-over and settings by name, for the tests of this folder.
#pragma once

#include <array>
#include <cstdint>
#include <utility>

#include "frontend/ArrayPipeline.h"

namespace vellumic {

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
    for (const Raw stage :
         {Raw::beamformer, Raw::noisePostfilter, Raw::echoCancellation, Raw::levelControl})
      set(stage, value);
  }
  void apply() { pipeline.applyParameters(handover, raw, stream); }

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

}  // namespace vellumic
