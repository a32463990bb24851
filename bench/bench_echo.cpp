// Cost of the echo path per block of 1024 samples (64 ms) at 16 kHz, beside SpeexDSP's canceller
// and preprocessor for one microphone and two loudspeakers over the same 64 ms.
#include <benchmark/benchmark.h>
#include <speex/speex_echo.h>
#include <speex/speex_preprocess.h>

#include <algorithm>
#include <random>
#include <vector>

#include "array/OutputLevelControl.h"
#include "echo/DelayEstimator.h"
#include "echo/EchoCanceller.h"
#include "echo/ReferenceSpectra.h"

namespace {

using namespace vellumic;

constexpr int blockLength = 1024;
constexpr int distinctBlocks = 16;

struct Scene {
  std::vector<float> left, right, microphone;  // distinctBlocks each, played round
  Scene() {
    std::minstd_rand engine(1);
    std::uniform_real_distribution<float> draw(-0.3F, 0.3F);
    for (int i = 0; i < blockLength * distinctBlocks; ++i) {
      left.push_back(draw(engine));
      right.push_back(draw(engine));
      const auto past = static_cast<std::size_t>(std::max(i - 100, 0));
      microphone.push_back(0.4F * left[past] + 0.2F * right[past] + 0.01F * draw(engine));
    }
  }
  static std::span<const float> block(const std::vector<float>& signal, int index) {
    const auto first = static_cast<std::size_t>(index % distinctBlocks * blockLength);
    return std::span(signal).subspan(first, blockLength);
  }
};

// All microphones of an array share the references' transforms.
void cancelSharing(benchmark::State& state) {
  const Scene scene;
  ReferenceSpectra references;
  std::vector<EchoCanceller> cancellers(static_cast<std::size_t>(state.range(0)));
  std::vector<float> output(blockLength);
  int index = 0;
  for (auto _ : state) {
    references.advance(Scene::block(scene.left, index), Scene::block(scene.right, index));
    for (auto& canceller : cancellers)
      canceller.process(references, Scene::block(scene.microphone, index), output);
    ++index;
    benchmark::DoNotOptimize(output.data());
  }
}
BENCHMARK(cancelSharing)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);

void cancelSeparately(benchmark::State& state) {
  const Scene scene;
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<ReferenceSpectra> references(count);
  std::vector<EchoCanceller> cancellers(count);
  std::vector<float> output(blockLength);
  int index = 0;
  for (auto _ : state) {
    for (std::size_t m = 0; m < count; ++m) {
      references[m].advance(Scene::block(scene.left, index), Scene::block(scene.right, index));
      cancellers[m].process(references[m], Scene::block(scene.microphone, index), output);
    }
    ++index;
    benchmark::DoNotOptimize(output.data());
  }
}
BENCHMARK(cancelSeparately)->Arg(1)->Arg(4)->Unit(benchmark::kMicrosecond);

void startOver(benchmark::State& state) {
  EchoCanceller canceller;
  for (auto _ : state) canceller.setup();
}
BENCHMARK(startOver)->Unit(benchmark::kMicrosecond);

void estimateDelay(benchmark::State& state) {
  const Scene scene;
  DelayEstimator estimator;
  Eigen::ArrayXXf reference(blockLength, 2), microphones(blockLength, 4);
  for (Eigen::Index i = 0; i < blockLength; ++i) {
    reference.row(i).setConstant(scene.left[static_cast<std::size_t>(i)]);
    microphones.row(i).setConstant(scene.microphone[static_cast<std::size_t>(i)]);
  }
  for (auto _ : state) estimator.update(reference, microphones);
}
BENCHMARK(estimateDelay)->Unit(benchmark::kMicrosecond);

void levelControl(benchmark::State& state) {
  const Scene scene;
  OutputLevelControl control;
  control.levelControlEnabled = true;
  for (auto _ : state) {
    float output = 0.0F;
    for (float sample : Scene::block(scene.microphone, 0)) control.process(sample, output);
    benchmark::DoNotOptimize(output);
  }
}
BENCHMARK(levelControl)->Unit(benchmark::kMicrosecond);

void speexCanceller(benchmark::State& state) {
  constexpr int frame = 128, tail = 1024;
  const Scene scene;
  int rate = 16000;
  SpeexEchoState* echo = speex_echo_state_init_mc(frame, tail, 1, 2);
  SpeexPreprocessState* preprocessor = speex_preprocess_state_init(frame, rate);
  speex_echo_ctl(echo, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
  speex_preprocess_ctl(preprocessor, SPEEX_PREPROCESS_SET_ECHO_STATE, echo);
  const auto pcm = [](float sample) { return static_cast<spx_int16_t>(sample * 32767.0F); };
  std::vector<spx_int16_t> microphone, reference, output(frame);
  for (std::size_t i = 0; i < scene.microphone.size(); ++i) {
    microphone.push_back(pcm(scene.microphone[i]));
    reference.push_back(pcm(scene.left[i]));
    reference.push_back(pcm(scene.right[i]));
  }
  std::size_t position = 0;
  for (auto _ : state)
    for (int f = 0; f < blockLength / frame; ++f) {
      speex_echo_cancellation(echo, &microphone[position], &reference[2 * position], output.data());
      speex_preprocess_run(preprocessor, output.data());
      position = (position + frame) % microphone.size();
    }
  speex_preprocess_state_destroy(preprocessor);
  speex_echo_state_destroy(echo);
}
BENCHMARK(speexCanceller)->Unit(benchmark::kMicrosecond);

}  // namespace
