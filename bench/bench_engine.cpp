// The frame core: building an image, and a call of 10 ms through processBlock.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "bench/EveryBand.h"
#include "engine/CaptureCore.h"
#include "engine/ProcessBlock.h"
#include "parameters/Catalogue.h"
#include "platform/FloatingPointMode.h"

namespace {

using namespace vellumic;

constexpr std::uint32_t frames = 480, channels = 2;

std::unique_ptr<CaptureCore> lockedCore(const RawValues& settings, EffectMode mode) {
  auto core = std::make_unique<CaptureCore>(LoopbackOpener{});
  if (!core->sets.allocate()) throw std::bad_alloc();
  std::ranges::copy(settings, core->sets.rawParameters().begin());
  core->sets.settingRead();
  core->sets.initialize(ProcessingMode::speech, mode);
  const StreamFormat stereo;
  if (!core->sets.lock(stereo, ProcessingMode::speech, mode, core->context)) throw std::bad_alloc();
  return core;
}

void buildImageOnly(benchmark::State& state) {
  const auto mode = static_cast<EffectMode>(state.range(0));
  const auto core = lockedCore(bench::everyBand(), mode);
  for ([[maybe_unused]] auto pass : state)
    benchmark::DoNotOptimize(buildImage(core->engine, core->sets.rawParameters(),
                                        core->sets.pendingImage(), core->sets.pendingMask(),
                                        ProcessingMode::speech, mode));
}
BENCHMARK(buildImageOnly)->ArgName("mode")->Arg(10)->Arg(9)->Unit(benchmark::kMicrosecond);

void processCalls(benchmark::State& state, const RawValues& settings, bool fading) {
  cutDenormals();
  const auto core = lockedCore(settings, EffectMode::equalizer);
  std::vector<float> input(frames * channels), output(input.size());
  for (std::size_t n = 0; n < input.size(); ++n)
    input[n] = 0.001F * static_cast<float>(n * 7919 % 997);
  ProcessContext& context = core->context;
  context.inputBuffer = input.data();
  context.outputBuffer = output.data();
  context.inputFlags = buffer_flags::valid;
  context.inputValidFrames = frames;
  RawValues faded = settings;
  faded[index(Raw::fadeRequest)] = 1.0F;
  for ([[maybe_unused]] auto pass : state) {
    if (fading && (*context.fadeSlot)[index(Fade::phase)] == 0.0F && core->lockBlock.pending == 0) {
      state.PauseTiming();
      core->sets.reload(faded, ProcessingMode::speech, EffectMode::equalizer);
      state.ResumeTiming();
    }
    processBlock(context);
    benchmark::DoNotOptimize(output.data());
  }
  state.counters["frame"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * frames,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void processWithoutEffect(benchmark::State& state) {
  RawValues off = factorySettings();
  off[index(Raw::masterEnable)] = 0.0F;
  processCalls(state, off, false);
}
void processTenBands(benchmark::State& state) { processCalls(state, bench::everyBand(), false); }
void processTenBandsInAFade(benchmark::State& state) {
  processCalls(state, bench::everyBand(), true);
}
BENCHMARK(processWithoutEffect);
BENCHMARK(processTenBands);
BENCHMARK(processTenBandsInAFade);

}  // namespace
