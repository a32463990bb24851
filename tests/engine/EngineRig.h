// A capture object without Windows, ready to be fed: initialised, locked, and called as the audio
// engine would call it.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <vector>

#include "engine/CaptureCore.h"
#include "engine/ProcessBlock.h"
#include "parameters/Catalogue.h"

namespace vellumic {

struct RigSetup {
  EffectMode mode = EffectMode::equalizer;
  ProcessingMode processingMode = ProcessingMode::standard;
  StreamFormat format{.sampleRate = 48000.0F, .inputChannels = 2, .outputChannels = 2};
  LoopbackOpener openLoopback{};
};

class EngineRig {
 public:
  explicit EngineRig(const RawValues& settings, const RigSetup& setup = {})
      : core(std::make_unique<CaptureCore>(setup.openLoopback)), setup_(setup) {
    if (!core->sets.allocate()) throw std::bad_alloc();
    std::ranges::copy(settings, core->sets.rawParameters().begin());
    core->sets.settingRead();
    core->sets.initialize(setup.processingMode, setup.mode);
    lock(setup.format);
  }

  void lock(const StreamFormat& format) { lock(format, setup_.processingMode); }
  void lock(const StreamFormat& format, ProcessingMode processingMode) {
    setup_.format = format;
    setup_.processingMode = processingMode;
    if (!core->sets.lock(format, setup_.processingMode, setup_.mode, core->context))
      throw std::bad_alloc();
  }
  void reload(const RawValues& settings) {
    core->sets.reload(settings, setup_.processingMode, setup_.mode);
  }

  // One call; the output starts as `untouched` everywhere, and stays so behind the last frame.
  static constexpr float untouched = -77.0F;
  std::vector<float> call(std::vector<float> input, std::uint32_t flags = buffer_flags::valid) {
    const auto frames = static_cast<std::uint32_t>(input.size()) / setup_.format.inputChannels;
    const std::size_t samples = std::size_t{frames} * setup_.format.outputChannels;
    std::vector<float> output(samples + setup_.format.outputChannels, untouched);
    ProcessContext& context = core->context;
    context.inputBuffer = input.data();
    context.outputBuffer = output.data();
    context.inputValidFrames = frames;
    context.inputFlags = flags;
    processBlock(context);
    for (; output.size() > samples; output.pop_back()) EXPECT_EQ(output.back(), untouched);
    return output;
  }

  FadeView fade() { return FadeView(*core->context.fadeSlot); }
  ImageView image() { return ImageView(*core->context.imageSlot); }

  std::unique_ptr<CaptureCore> core;

 private:
  RigSetup setup_;
};

// Settings by slot over the factory values.
inline RawValues factoryWith(std::initializer_list<std::pair<Raw, float>> changes) {
  RawValues values = factorySettings();
  for (const auto& [slot, value] : changes) values[index(slot)] = value;
  return values;
}

// The equaliser as a plain gain on both channels.
inline RawValues equalizerGain(float gain) {
  RawValues values = factoryWith({{Raw::equalizerMaster, 1.0F}});
  for (const int side : {0, 1}) {
    values[index(bandSlot(side, 0, BandField::enable))] = 1.0F;
    values[index(bandSlot(side, 0, BandField::type))] = 0.0F;
    values[index(bandSlot(side, 0, BandField::gain))] = gain;
  }
  return values;
}

inline RawValues byFade(RawValues values) {
  values[index(Raw::fadeRequest)] = 1.0F;
  return values;
}

inline std::vector<float> constant(std::size_t samples, float value) {
  return std::vector<float>(samples, value);
}

// The same sine on all channels.
inline std::vector<float> sine(std::size_t frames, std::uint32_t channels, double radiansPerFrame,
                               std::size_t firstFrame = 0, float amplitude = 0.1F) {
  std::vector<float> samples;
  for (std::size_t n = 0; n < frames; ++n)
    samples.insert(samples.end(), channels,
                   amplitude * static_cast<float>(std::sin(radiansPerFrame *
                                                           static_cast<double>(firstFrame + n))));
  return samples;
}

}  // namespace vellumic
