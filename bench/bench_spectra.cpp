// One real float transform forward: microseconds on every instruction set, beside FFTW
// with an estimated and with a measured plan and the plain transform of Eigen.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <memory>
#include <unsupported/Eigen/FFT>
#include <vector>

#include "platform/InstructionSet.h"
#include "spectra/Fft.h"

namespace {

using namespace vellumic;

std::vector<float> noise(std::int64_t count) {
  std::vector<float> samples(static_cast<std::size_t>(count));
  unsigned state = 1;
  for (float& sample : samples) {
    state = state * 1664525U + 1013904223U;
    sample = static_cast<float>(state >> 8U) / 16777216.0F - 0.5F;
  }
  return samples;
}

enum class Way { planes, pairs, inversePlanes };

template <InstructionSet set, Way way>
void vellumicFft(benchmark::State& state) {
  const ScopedInstructionSet scope(set);
  std::vector<float> samples = noise(state.range(0));
  Fft fft(static_cast<int>(samples.size()));
  std::vector<float> re(samples.size() / 2 + 1), im(re.size());
  std::vector<std::complex<float>> bins(re.size());
  for ([[maybe_unused]] auto pass : state) {
    if constexpr (way == Way::planes) fft.forward(samples, re, im);
    if constexpr (way == Way::pairs) fft.forward(samples.data(), bins.data());
    if constexpr (way == Way::inversePlanes) fft.inverse(re, im, samples);
    benchmark::ClobberMemory();
  }
}

template <unsigned planning>
void fftw(benchmark::State& state) {
  const auto size = static_cast<int>(state.range(0));
  const auto free = [](auto* memory) { fftwf_free(memory); };
  const std::unique_ptr<float, decltype(free)> samples(
      fftwf_alloc_real(static_cast<std::size_t>(size)));
  const std::unique_ptr<fftwf_complex, decltype(free)> bins(
      fftwf_alloc_complex(static_cast<std::size_t>(size / 2 + 1)));
  const fftwf_plan plan = fftwf_plan_dft_r2c_1d(size, samples.get(), bins.get(), planning);
  std::ranges::copy(noise(size), samples.get());
  for ([[maybe_unused]] auto pass : state) {
    fftwf_execute(plan);
    benchmark::ClobberMemory();
  }
  fftwf_destroy_plan(plan);
}

void eigen(benchmark::State& state) {
  const std::vector<float> samples = noise(state.range(0));
  std::vector<std::complex<float>> bins(samples.size() / 2 + 1);
  Eigen::FFT<float> transform;
  transform.SetFlag(Eigen::FFT<float>::HalfSpectrum);
  for ([[maybe_unused]] auto pass : state) {
    transform.fwd(bins.data(), samples.data(), static_cast<Eigen::Index>(samples.size()));
    benchmark::ClobberMemory();
  }
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Unit(benchmark::kMicrosecond);
  for (const int size : {512, 960, 1024, 2048, 4096, 8192, 16384}) bench->Arg(size);
}
BENCHMARK(vellumicFft<InstructionSet::Avx2, Way::planes>)->Apply(sizes);
BENCHMARK(vellumicFft<InstructionSet::Avx2, Way::pairs>)->Apply(sizes);
BENCHMARK(vellumicFft<InstructionSet::Avx2, Way::inversePlanes>)->Apply(sizes);
BENCHMARK(vellumicFft<InstructionSet::Base, Way::planes>)->Apply(sizes);
BENCHMARK(fftw<FFTW_ESTIMATE>)->Apply(sizes);
BENCHMARK(fftw<FFTW_MEASURE>)->Apply(sizes);
BENCHMARK(eigen)->Apply(sizes);

}  // namespace
