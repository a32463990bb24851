// Ten bands on two channels: nanoseconds per frame, beside a plain cascade of sections.
#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include "filters/BiquadEqualizer.h"
#include "platform/FloatingPointMode.h"
#include "platform/InstructionSet.h"

namespace {

using namespace vellumic;

constexpr float sampleRate = 48000.0F;
constexpr std::size_t frames = 480, room = 12;

EqualizerSettings allBandsOn() {
  EqualizerSettings settings;
  settings.master = 1.0F;
  for (auto& side : settings.bands)
    for (std::size_t band = 0; band < side.size(); ++band)
      side[band] = {.enable = 1.0F,
                    .type = 1,
                    .frequency = 60.0F * static_cast<float>(1U << band) * 0.6F,
                    .gain = band % 2 == 0 ? 1.4F : 0.7F,
                    .q = 1.0F};
  return settings;
}

std::vector<float> noise(std::size_t count) {
  std::vector<float> samples(count);
  unsigned state = 1;
  for (float& sample : samples) {
    state = state * 1664525U + 1013904223U;
    sample = static_cast<float>(state >> 8U) / 16777216.0F - 0.5F;
  }
  return samples;
}

void countFrames(benchmark::State& state) {
  state.counters["frame"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(frames),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// One call per frame, through a frame with room for twelve channels.
template <class Filter>
void runFrames(benchmark::State& state, Filter&& filter) {
  const std::vector<float> samples = noise(2 * frames);
  std::array<float, room> frame{};
  for ([[maybe_unused]] auto pass : state) {
    for (std::size_t n = 0; n < frames; ++n) {
      frame[0] = samples[2 * n];
      frame[1] = samples[2 * n + 1];
      filter(frame.data());
      benchmark::DoNotOptimize(frame);
    }
  }
  countFrames(state);
}

void plainCascade(benchmark::State& state) {
  auto bands = EqualizerRecord::design(allBandsOn(), sampleRate, {}).bands;
  cutDenormals();
  runFrames(state, [&](float* frame) {
    for (std::size_t band = 0; band < bands[0].size(); ++band) {
      if (bands[0][band].enabled) bands[0][band].section.process(frame[0]);
      if (bands[1][band].enabled) bands[1][band].section.process(frame[1]);
    }
  });
}
BENCHMARK(plainCascade);

BiquadEqualizer prepared(std::int64_t sides) {
  BiquadEqualizer equalizer;
  EqualizerSettings settings = allBandsOn();
  if (sides == 1)
    for (auto& band : settings.bands[1]) band.enable = 0.0F;
  equalizer.applyParameters(settings, sampleRate);
  cutDenormals();
  return equalizer;
}

void equalizerByFrame(benchmark::State& state) {
  BiquadEqualizer equalizer = prepared(state.range(0));
  runFrames(state, [&](float* frame) { equalizer.process(frame); });
}
BENCHMARK(equalizerByFrame)->ArgName("sides")->Arg(2)->Arg(1);

template <InstructionSet set>
void equalizerByBlock(benchmark::State& state) {
  const ScopedInstructionSet scope(set);
  BiquadEqualizer equalizer = prepared(state.range(0));
  const std::vector<float> samples = noise(2 * frames);
  std::vector<float> block(samples.size());
  for ([[maybe_unused]] auto pass : state) {
    block = samples;
    equalizer.processFrames(block.data(), 2, frames);
    benchmark::DoNotOptimize(block.data());
  }
  countFrames(state);
}
BENCHMARK(equalizerByBlock<InstructionSet::Avx2>)->ArgName("sides")->Arg(2)->Arg(1);
BENCHMARK(equalizerByBlock<InstructionSet::Base>)->ArgName("sides")->Arg(2)->Arg(1);

}  // namespace
