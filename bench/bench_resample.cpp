// Rate conversion of one channel, 48000 to 16000 Hz and back, one sample a call and 480 a call:
// nanoseconds per input sample, and the worst single call, beside three well-known converters.
//
// The worst call is the highest of a second's calls, each taken at its fastest of several passes
// over the same second, so that interruptions by the system do not count.
#include <benchmark/benchmark.h>
#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <vector>

#include "platform/FloatingPointMode.h"
#include "platform/InstructionSet.h"
#include "resample/CDSPResampler24.h"

namespace {

using vellumic::InstructionSet;
using vellumic::ScopedInstructionSet;

constexpr int room = 4096;  // outputs of one call

template <InstructionSet set>
struct Vellumic {
  Vellumic(int source, int destination, int callSize)
      : converter(source, destination, callSize, 10.0) {}
  int process(const double* input, int count) {
    const double* output = nullptr;
    const int produced = converter.process(input, count, output);
    benchmark::DoNotOptimize(output);
    return produced;
  }
  void clear() { converter.clear(); }
  ScopedInstructionSet scope{set};
  vellumic::resample::CDSPResampler24 converter;
};

// soxr, very high quality, double.
struct Soxr {
  Soxr(int source, int destination, int) {
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    converter.reset(soxr_create(source, destination, 1, nullptr, &samples, &quality, nullptr));
  }
  int process(const double* input, int count) {
    std::size_t produced = 0;
    soxr_process(converter.get(), input, static_cast<std::size_t>(count), nullptr, output.data(),
                 output.size(), &produced);
    return static_cast<int>(produced);
  }
  void clear() { soxr_clear(converter.get()); }
  std::unique_ptr<std::remove_pointer_t<soxr_t>, decltype(&soxr_delete)> converter{nullptr,
                                                                                   soxr_delete};
  std::vector<double> output = std::vector<double>(room);
};

struct LibSampleRateBest {
  LibSampleRateBest(int source, int destination, int)
      : converter(src_new(SRC_SINC_BEST_QUALITY, 1, nullptr), src_delete),
        ratio(static_cast<double>(destination) / source) {}
  int process(const double* input, int count) {
    std::copy_n(input, count, narrow.begin());
    SRC_DATA data{narrow.data(), output.data(), count, room, 0, 0, 0, ratio};
    src_process(converter.get(), &data);
    return static_cast<int>(data.output_frames_gen);
  }
  void clear() { src_reset(converter.get()); }
  std::unique_ptr<SRC_STATE, decltype(&src_delete)> converter;
  double ratio;
  std::vector<float> narrow = std::vector<float>(room), output = narrow;
};

struct Speex10 {
  Speex10(int source, int destination, int)
      : converter(speex_resampler_init(1, static_cast<spx_uint32_t>(source),
                                       static_cast<spx_uint32_t>(destination), 10, nullptr),
                  speex_resampler_destroy) {}
  int process(const double* input, int count) {
    std::copy_n(input, count, narrow.begin());
    auto taken = static_cast<spx_uint32_t>(count);
    spx_uint32_t produced = room;
    speex_resampler_process_float(converter.get(), 0, narrow.data(), &taken, output.data(),
                                  &produced);
    return static_cast<int>(produced);
  }
  void clear() { speex_resampler_reset_mem(converter.get()); }
  std::unique_ptr<SpeexResamplerState, decltype(&speex_resampler_destroy)> converter;
  std::vector<float> narrow = std::vector<float>(room), output = narrow;
};

std::vector<double> noise(int count) {
  std::vector<double> samples(static_cast<std::size_t>(count));
  unsigned state = 1;
  for (double& sample : samples) {
    state = state * 1664525U + 1013904223U;
    sample = static_cast<double>(state >> 8U) / 16777216.0 - 0.5;
  }
  return samples;
}

template <class Converter>
double worstCall(Converter& converter, const std::vector<double>& second, int callSize) {
  using Clock = std::chrono::steady_clock;
  constexpr int passes = 12;
  std::vector<double> fastest(second.size() / static_cast<std::size_t>(callSize),
                              std::numeric_limits<double>::max());
  for (int pass = 0; pass < passes; ++pass) {
    converter.clear();
    const double* input = second.data();
    for (double& call : fastest) {
      const auto start = Clock::now();
      benchmark::DoNotOptimize(converter.process(input, callSize));
      const std::chrono::duration<double, std::nano> time = Clock::now() - start;
      call = std::min(call, time.count());
      input += callSize;
    }
  }
  return *std::ranges::max_element(fastest);
}

template <class Converter>
void convert(benchmark::State& state) {
  const auto source = static_cast<int>(state.range(0));
  const auto destination = static_cast<int>(state.range(1));
  const auto callSize = static_cast<int>(state.range(2));
  vellumic::cutDenormals();
  Converter converter(source, destination, callSize);
  const std::vector<double> second = noise(source - source % callSize);
  long long outputs = 0;
  for ([[maybe_unused]] auto pass : state) {
    for (std::size_t n = 0; n < second.size(); n += static_cast<std::size_t>(callSize)) {
      outputs += converter.process(second.data() + n, callSize);
    }
  }
  benchmark::DoNotOptimize(outputs);
  state.counters["perInput"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * static_cast<double>(second.size()),
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["worstCallNs"] = worstCall(converter, second, callSize);
}

void jobs(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"from", "to", "call"})->Unit(benchmark::kMillisecond);
  for (const int callSize : {1, 480}) bench->Args({48000, 16000, callSize});
  for (const int callSize : {1, 480}) bench->Args({16000, 48000, callSize});
}
BENCHMARK(convert<Vellumic<InstructionSet::Avx2>>)->Apply(jobs);
BENCHMARK(convert<Vellumic<InstructionSet::Base>>)->Apply(jobs);
BENCHMARK(convert<Soxr>)->Apply(jobs);
BENCHMARK(convert<LibSampleRateBest>)->Apply(jobs);
BENCHMARK(convert<Speex10>)->Apply(jobs);

}  // namespace
