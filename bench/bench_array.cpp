// Cost of one hop (128 samples, 8 ms) of the array chain, whole and by stage.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "array/ArrayNoiseProcessing.h"
#include "array/OutputLevelControl.h"
#include "array/kernels/Beam.h"
#include "array/kernels/PrincipalVectors.h"
#include "platform/FloatingPointMode.h"

namespace vellumic {
namespace {

constexpr int hop = 128;
constexpr int hopsOfInput = 64;

// White noise with a common part, columns are microphones.
Eigen::ArrayXXf microphones(int count) {
  std::mt19937 random(1);
  std::normal_distribution<float> normal(0.0F, 0.01F);
  Eigen::ArrayXXf signal =
      Eigen::ArrayXXf::NullaryExpr(hop * hopsOfInput, count, [&] { return normal(random); });
  signal.colwise() += Eigen::ArrayXf(signal.col(0));
  return signal;
}

// A chain past its first frames, with a spectrum to work on.
ArrayNoiseProcessing warmChain(int count, const Eigen::ArrayXXf& signal) {
  cutDenormals();
  ArrayNoiseProcessing chain(count, 512);
  Eigen::ArrayXf output(hop);
  for (int h = 0; h < hopsOfInput; ++h) chain.process(signal.middleRows(h * hop, hop), output);
  return chain;
}

void wholeHop(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  const Eigen::ArrayXXf signal = microphones(count);
  ArrayNoiseProcessing chain = warmChain(count, signal);
  Eigen::ArrayXf output(hop);
  int h = 0;
  for (auto _ : state) {
    chain.process(signal.middleRows(h * hop, hop), output);
    benchmark::DoNotOptimize(output.data());
    h = (h + 1) % hopsOfInput;
  }
}
BENCHMARK(wholeHop)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);

void analysis(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  const Eigen::ArrayXXf signal = microphones(count);
  ArrayNoiseProcessing chain = warmChain(count, signal);
  for (auto _ : state) {
    for (int c = 0; c < count; ++c)
      chain.channels[static_cast<std::size_t>(c)].analyzeFrame(signal.col(c).head(hop),
                                                               chain.spectra.col(c));
    benchmark::DoNotOptimize(chain.spectra.data());
  }
}
BENCHMARK(analysis)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);

void activity(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  ArrayNoiseProcessing chain = warmChain(count, microphones(count));
  const Eigen::ArrayXf power = chain.spectra.col(0).abs2();
  Eigen::ArrayXf probability(chain.binCount);
  for (auto _ : state) {
    for (ActivityEstimator& estimator : chain.beamformer.estimators)
      estimator.process(power, probability);
    benchmark::DoNotOptimize(probability.data());
  }
}
BENCHMARK(activity)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);

// The spectra that the chain made of its input, so that the covariances stay those of a sound.
std::vector<Eigen::ArrayXXcf> framesOf(int count) {
  const Eigen::ArrayXXf signal = microphones(count);
  ArrayNoiseProcessing chain(count, 512);
  Eigen::ArrayXf output(hop);
  std::vector<Eigen::ArrayXXcf> frames;
  for (int h = 0; h < hopsOfInput; ++h) {
    chain.process(signal.middleRows(h * hop, hop), output);
    frames.push_back(chain.spectra);
  }
  return frames;
}

// With the activity estimators; second argument 0 leaves out the eigen solves.
void beamformer(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  const std::vector<Eigen::ArrayXXcf> frames = framesOf(count);
  ArrayNoiseProcessing chain = warmChain(count, microphones(count));
  if (state.range(1) == 0) chain.beamformer.binsPerFrame = 0;
  std::size_t frame = 0;
  for (auto _ : state) {
    chain.beamformer.process(frames[frame], chain.beamformed);
    benchmark::DoNotOptimize(chain.beamformed.data());
    frame = (frame + 1) % frames.size();
  }
}
BENCHMARK(beamformer)
    ->ArgNames({"microphones", "solves"})
    ->ArgsProduct({{2, 4, 8}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// Both covariances of all bins.
void covariances(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  const ArrayNoiseProcessing chain = warmChain(count, microphones(count));
  const int rows = planeRows(chain.binCount);
  const Eigen::ArrayXXf plane = Eigen::ArrayXXf::Constant(rows, count, 0.1F);
  CovariancePlanes signal = chain.beamformer.signalCovariance,
                   noise = chain.beamformer.noiseCovariance;
  for (auto _ : state) {
    beamKernels().smooth(plane.data(), plane.data(), plane.data(), rows, count, 0.0016F,
                         signal.planes.data(), noise.planes.data());
    benchmark::DoNotOptimize(signal.planes.data());
  }
}
BENCHMARK(covariances)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);

// The eigenvectors of one frame, 16 bins, by the lanes alone.
void eigenvectors(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  ArrayNoiseProcessing chain = warmChain(count, microphones(count));
  BeamformerAdaptive& beam = chain.beamformer;
  int bin = 0;
  for (auto _ : state) {
    const CovariancePair pair{beam.signalCovariance.planes.data() + bin,
                              beam.noiseCovariance.planes.data() + bin, planeRows(beam.binCount),
                              0.0F, 0.0F};
    benchmark::DoNotOptimize(principalVectorKernels().solve(pair, count, mostBinsOfASolve,
                                                            beam.weights.real.data() + bin,
                                                            beam.weights.imaginary.data() + bin));
    bin = (bin + mostBinsOfASolve) % 240;
  }
}
BENCHMARK(eigenvectors)->DenseRange(2, 8)->Unit(benchmark::kMicrosecond);

void postfilter(benchmark::State& state) {
  ArrayNoiseProcessing chain = warmChain(2, microphones(2));
  for (auto _ : state) {
    chain.postfilter.process(chain.beamformed, chain.enhanced);
    benchmark::DoNotOptimize(chain.enhanced.data());
  }
}
BENCHMARK(postfilter)->Unit(benchmark::kMicrosecond);

void synthesis(benchmark::State& state) {
  ArrayNoiseProcessing chain = warmChain(2, microphones(2));
  Eigen::ArrayXf output(hop);
  for (auto _ : state) {
    chain.channels[0].synthesizeFrame(chain.enhanced, output);
    benchmark::DoNotOptimize(output.data());
  }
}
BENCHMARK(synthesis)->Unit(benchmark::kMicrosecond);

// One hop of noise that both stages work on.
void levelControl(benchmark::State& state) {
  const Eigen::ArrayXXf signal = microphones(2);
  OutputLevelControl control;
  control.levelControlEnabled = true;
  Eigen::ArrayXf samples(hop);
  for (auto _ : state) {
    samples = signal.col(0).head(hop);
    control.process({samples.data(), static_cast<std::size_t>(hop)});
    benchmark::DoNotOptimize(samples.data());
  }
}
BENCHMARK(levelControl)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vellumic
