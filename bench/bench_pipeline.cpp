// Cost of the whole microphone chain per call of 10 ms at 48 kHz, all stages on and the
// loudspeakers playing. The call that completes a block runs the cancellers; it stands apart.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <random>
#include <vector>

#include "frontend/ArrayPipeline.h"
#include "platform/FloatingPointMode.h"

namespace vellumic {
namespace {

constexpr int rate = 48000;
constexpr int period = rate / 100;  // frames per call
constexpr int seconds = 20;
constexpr double periodMicroseconds = 1e4;

std::vector<float> noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0F, 0.05F);
  std::vector<float> samples(count);
  std::ranges::generate(samples, [&] { return normal(random); });
  return samples;
}

// One second of noise over and over, one packet for each call of the stream.
class LoopingSpeakers : public PacketSource {
 public:
  LoopingSpeakers(const std::vector<float>& stereo, const int& calls)
      : stereo_(stereo), calls_(calls) {}
  MixFormat mixFormat() const noexcept override { return {.channels = 2, .sampleRate = rate}; }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    return taken_ < calls_ ? period : 0;
  }
  bool get(Packet& packet) noexcept override {
    const auto offset = static_cast<std::size_t>(taken_ % 100) * 2 * period;
    packet = {.samples = &stereo_[offset], .frames = period, .silent = false};
    return true;
  }
  void release(std::uint32_t) noexcept override { ++taken_; }

 private:
  const std::vector<float>& stereo_;
  const int& calls_;
  int taken_ = 0;
};

double quantile(std::vector<double>& sorted, double share) {
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

void report(benchmark::State& state, std::vector<double>& plain, std::vector<double>& block) {
  std::ranges::sort(plain);
  std::ranges::sort(block);
  state.counters["p50_us"] = quantile(plain, 0.5);
  state.counters["p99_us"] = quantile(plain, 0.99);
  state.counters["worst_us"] = plain.back();
  state.counters["block_p50_us"] = quantile(block, 0.5);
  state.counters["block_p99_us"] = quantile(block, 0.99);
  state.counters["block_worst_us"] = block.back();
  state.counters["worst_share_%"] =
      100.0 * std::max(plain.back(), block.back()) / periodMicroseconds;
}

// Argument: microphones. The time is that of one second of audio.
void tenMilliseconds(benchmark::State& state) {
  cutDenormals();
  const auto microphones = static_cast<std::size_t>(state.range(0));
  const std::vector<float> far = noise(2 * rate, 1), near = noise(rate, 2);
  std::array<float, rawCount> raw{};
  for (std::size_t i = 0; i < rawCount; ++i) raw[i] = factoryValue(static_cast<Raw>(i));

  for (auto _ : state) {
    int calls = 0;
    ArrayPipeline pipeline({.open = [&] { return std::make_unique<LoopingSpeakers>(far, calls); },
                            .onHelperThread = false});
    PipelineHandover handover;
    handover.prepareStream(1024, static_cast<int>(microphones), false);
    pipeline.applyParameters(handover, raw, {});
    pipeline.startLoopback();

    std::vector<double> plain, block;
    double total = 0.0;
    std::array<float, 12> frame{};
    for (; calls < 100 * seconds; ++calls) {
      const auto blocksBefore = pipeline.probe().blocks;
      const auto begin = std::chrono::steady_clock::now();
      for (std::size_t n = 0; n < period; ++n) {
        const std::size_t at = static_cast<std::size_t>(calls % 99) * period + n;
        for (std::size_t c = 0; c < microphones; ++c)
          frame[c] = 0.5F * far[2 * at + c % 2] + 0.2F * near[(at + 97 * c) % rate];
        pipeline.processFrame(frame.data());
      }
      const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
      total += time.count();
      (pipeline.probe().blocks == blocksBefore ? plain : block).push_back(1e6 * time.count());
      benchmark::DoNotOptimize(frame);
    }
    if (pipeline.probe().cancelledBlocks == 0) state.SkipWithError("the cancellers never ran");
    report(state, plain, block);
    state.SetIterationTime(total / seconds);
  }
}
BENCHMARK(tenMilliseconds)
    ->Arg(2)
    ->Arg(4)
    ->Arg(8)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vellumic
