// What the whole array chain costs: CPU per second of audio and the cost of single calls of 10 ms
// through processBlock, all stages at factory settings, the loudspeakers playing into both
// references; beside SpeexDSP on the same scene, and units to read the figures by.
//
// Everything is run in turn, five times, on the same samples. Of each call the least of the five
// counts, as the machine may be shared; sums and the worst call are of these.
//   bench_chain [extremes]     with a word only the table of extreme settings
#include <fftw3.h>
#include <soxr.h>
#include <speex/speex_echo.h>
#include <speex/speex_preprocess.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <memory>
#include <new>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "engine/CaptureCore.h"
#include "engine/ProcessBlock.h"
#include "parameters/Catalogue.h"
#include "platform/FloatingPointMode.h"
#include "platform/InstructionSet.h"
#include "spectra/Fft.h"
#include "tests/support/HeapInUse.h"
#include "tools/ThreadTime.h"

namespace vellumic {
namespace {

constexpr int seconds = 12, callsPerSecond = 100, runs = 5;
constexpr std::size_t calls = seconds * callsPerSecond;
constexpr std::size_t firstCounted = 3 * callsPerSecond;  // the delay is found by then

double secondsOf(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Two loudspeakers, and microphones that hear them a few milliseconds later beside a noise.
struct Scene {
  Scene(int rate, std::size_t microphones) : period(static_cast<std::size_t>(rate / 100)) {
    std::mt19937 random(1);
    std::normal_distribution<float> normal(0.0F, 0.05F);
    const std::size_t frames = calls * period;
    far.resize(2 * frames);
    near.resize(microphones * frames);
    std::ranges::generate(far, [&] { return normal(random); });
    for (std::size_t n = 0; n < frames; ++n)
      for (std::size_t c = 0; c < microphones; ++c) {
        const std::size_t delay = period / 2 + c;
        const float echo =
            n < delay ? 0.0F : far[2 * (n - delay)] + 0.5F * far[2 * (n - delay) + 1];
        near[n * microphones + c] = 0.4F * echo + 0.1F * normal(random);
      }
  }
  std::size_t period;  // frames per call
  std::vector<float> far, near;
};

// One packet for each call of the stream.
class Speakers : public PacketSource {
 public:
  Speakers(const Scene& scene, const std::size_t& call) : scene_(scene), call_(call) {}
  MixFormat mixFormat() const noexcept override {
    return {.channels = 2, .sampleRate = static_cast<int>(scene_.period) * 100};
  }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    return taken_ <= call_ ? static_cast<std::uint32_t>(scene_.period) : 0;
  }
  bool get(Packet& packet) noexcept override {
    packet = {.samples = &scene_.far[2 * taken_ * scene_.period],
              .frames = static_cast<std::uint32_t>(scene_.period),
              .silent = false};
    return true;
  }
  void release(std::uint32_t) noexcept override { ++taken_; }

 private:
  const Scene& scene_;
  const std::size_t& call_;
  std::size_t taken_ = 0;
};

// Seconds of each call; each the least of all runs.
class CallTimes {
 public:
  void add(const std::vector<double>& run) {
    least_.resize(run.size(), 1.0);
    for (std::size_t n = 0; n < run.size(); ++n) least_[n] = std::min(least_[n], run[n]);
  }
  double worst() const { return *std::ranges::max_element(least_); }
  // CPU seconds per second of audio.
  double perSecond() const { return std::accumulate(least_.begin(), least_.end(), 0.0) / seconds; }
  double quantile(double share) const {
    std::vector<double> sorted(least_.begin() + firstCounted, least_.end());
    std::ranges::sort(sorted);
    return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
  }

 private:
  std::vector<double> least_;
};

RawValues factoryWith(std::initializer_list<std::pair<Raw, float>> changes) {
  RawValues settings = factorySettings();
  for (const auto& [slot, value] : changes) settings[index(slot)] = value;
  return settings;
}

// An object that is locked to the scene's stream.
struct Chain {
  Chain(const Scene& theScene, std::size_t microphones, const RawValues& settings)
      : scene(theScene) {
    if (!core.sets.allocate()) throw std::bad_alloc();
    std::ranges::copy(settings, core.sets.rawParameters().begin());
    core.sets.settingRead();
    core.sets.initialize(ProcessingMode::speech, EffectMode::array);
    const auto channels = static_cast<std::uint32_t>(microphones);
    const StreamFormat format{.sampleRate = static_cast<float>(scene.period) * 100.0F,
                              .inputChannels = channels,
                              .outputChannels = channels};
    if (!core.sets.lock(format, ProcessingMode::speech, EffectMode::array, core.context))
      throw std::bad_alloc();
  }

  const Scene& scene;
  std::size_t call = 0;
  CaptureCore core{{.open = [this] { return std::make_unique<Speakers>(scene, call); },
                    .onHelperThread = false}};
};

std::vector<double> runChain(const Scene& scene, std::size_t microphones,
                             const RawValues& settings) {
  Chain chain(scene, microphones, settings);
  ProcessContext& context = chain.core.context;
  std::vector<float> input, output(scene.period * microphones);
  std::vector<double> times;
  for (; chain.call < calls; ++chain.call) {
    const auto first = scene.near.begin() + static_cast<std::ptrdiff_t>(chain.call * output.size());
    input.assign(first, first + std::ssize(output));
    context.inputBuffer = input.data();
    context.outputBuffer = output.data();
    context.inputFlags = buffer_flags::valid;
    context.inputValidFrames = static_cast<std::uint32_t>(scene.period);
    times.push_back(secondsOf([&] { processBlock(context); }));
  }
  const PipelineProbe& probe = chain.core.engine.pipeline.probe();
  if (probe.cancelledBlocks < probe.blocks * 9 / 10 || !probe.delayLocked)
    std::fprintf(stderr, "(the cancellers ran in %ld of %ld blocks)\n",
                 static_cast<long>(probe.cancelledBlocks), static_cast<long>(probe.blocks));
  return times;
}

// What one more object takes beside its arena; tables that all share are there already.
void printMemory() {
  const auto kibibytes = [](std::size_t bytes) { return static_cast<double>(bytes) / 1024.0; };
  std::puts("\n| microphones at 48 kHz | KiB of an object beside its arena |\n|---|---|");
  for (const std::size_t microphones : {2, 4, 8}) {
    const Scene scene(48000, microphones);
    const Chain first(scene, microphones, factorySettings());
    const std::size_t before = heapInUse();
    const auto second = std::make_unique<Chain>(scene, microphones, factorySettings());
    std::printf("| %zu | %.0f |\n", microphones, kibibytes(heapInUse() - before - Arena::capacity));
  }
}

// SpeexDSP's canceller for all microphones and a preprocessor for each, at 16 kHz, in frames of
// 10 ms.
std::vector<double> runSpeex(const Scene& scene, std::size_t microphones, double tailSeconds) {
  int rate = 16000;
  const int frame = static_cast<int>(scene.period);
  const auto pcm = [](float sample) {
    return static_cast<spx_int16_t>(std::lround(32767.0F * std::clamp(sample, -1.0F, 1.0F)));
  };
  std::vector<spx_int16_t> near(scene.near.size()), far(scene.far.size());
  std::ranges::transform(scene.near, near.begin(), pcm);
  std::ranges::transform(scene.far, far.begin(), pcm);
  SpeexEchoState* echo = speex_echo_state_init_mc(frame, static_cast<int>(tailSeconds * rate),
                                                  static_cast<int>(microphones), 2);
  speex_echo_ctl(echo, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
  std::vector<SpeexPreprocessState*> stages(microphones);
  for (auto& stage : stages) {
    stage = speex_preprocess_state_init(frame, rate);
    speex_preprocess_ctl(stage, SPEEX_PREPROCESS_SET_ECHO_STATE, echo);
  }
  std::vector<spx_int16_t> out(scene.period * microphones), one(scene.period);
  std::vector<double> times;
  for (std::size_t call = 0; call < calls; ++call)
    times.push_back(secondsOf([&] {
      speex_echo_cancellation(echo, &near[call * scene.period * microphones],
                              &far[2 * call * scene.period], out.data());
      for (std::size_t c = 0; c < microphones; ++c) {
        for (std::size_t n = 0; n < scene.period; ++n) one[n] = out[n * microphones + c];
        speex_preprocess_run(stages[c], one.data());
      }
    }));
  for (auto* stage : stages) speex_preprocess_state_destroy(stage);
  speex_echo_state_destroy(echo);
  return times;
}

template <class Work>
double leastMicroseconds(int repeats, Work work) {
  double least = 1e9;
  for (int n = 0; n < 20; ++n)
    least = std::min(least, secondsOf([&] {
                              for (int i = 0; i < repeats; ++i) work();
                            }) / repeats);
  return 1e6 * least;
}

void printUnits() {
  constexpr int size = 2048;
  std::vector<float> samples(size, 0.1F);
  std::vector<std::complex<float>> bins(size / 2 + 1);
  fftwf_plan plan = fftwf_plan_dft_r2c_1d(
      size, samples.data(), reinterpret_cast<fftwf_complex*>(bins.data()), FFTW_MEASURE);
  std::ranges::fill(samples, 0.1F);
  const double fftw = leastMicroseconds(2000, [&] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
  Fft fft(size);
  std::vector<float> real(bins.size()), imag(bins.size());
  const double ours = leastMicroseconds(2000, [&] { fft.forward(samples, real, imag); });

  soxr_error_t error = nullptr;
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  soxr_t soxr = soxr_create(48000.0, 16000.0, 1, &error, &io, &quality, nullptr);
  std::vector<double> input(64, 0.1), output(64);
  const double soxrTime = leastMicroseconds(2000, [&] {
    std::size_t used = 0, made = 0;
    soxr_process(soxr, input.data(), input.size(), &used, output.data(), output.size(), &made);
  });
  soxr_delete(soxr);
  resample::CDSPResampler24 converter(48000.0, 16000.0, 64, 10.0);
  const double converterTime = leastMicroseconds(2000, [&] {
    const double* result = nullptr;
    converter.process(input.data(), 64, result);
  });
  std::printf("real transform of 2048: FFTW %.2f us, ours %.2f us\n", fftw, ours);
  std::printf("48000 to 16000 Hz in runs of 64, ns per input: soxr %.1f, ours %.1f\n\n",
              1e3 * soxrTime / 64.0, 1e3 * converterTime / 64.0);
}

void printRow(const char* name, int rate, std::size_t microphones, const CallTimes& speex,
              const CallTimes& times) {
  std::printf("| %d | %zu | %s | %.2f | %.2f | %.3f | %.0f | %.0f | %.0f |\n", rate, microphones,
              name, 1e3 * times.perSecond(), 1e3 * speex.perSecond(),
              times.perSecond() / speex.perSecond(), 1e6 * times.quantile(0.5),
              1e6 * times.quantile(0.99), 1e6 * times.quantile(1.0));
}

void printChain() {
  constexpr double tail = 0.256;  // s, as long as our search and filters reach together
  std::puts(
      "| rate | mics | set | CPU, ms per s | SpeexDSP | ratio | p50 us | p99 us | worst us |");
  std::puts("|---|---|---|---|---|---|---|---|---|");
  for (const int rate : {48000, 16000})
    for (const std::size_t microphones : {2, 4, 8}) {
      const Scene scene(rate, microphones), speexScene(16000, microphones);
      CallTimes fast, base, speex;
      for (int run = 0; run < runs; ++run) {
        speex.add(runSpeex(speexScene, microphones, tail));
        fast.add(runChain(scene, microphones, factorySettings()));
        const ScopedInstructionSet plain(InstructionSet::Base);
        base.add(runChain(scene, microphones, factorySettings()));
      }
      printRow(nameOf(instructionSet()), rate, microphones, speex, fast);
      printRow(nameOf(InstructionSet::Base), rate, microphones, speex, base);
    }
}

void printBlockSizes() {
  std::puts("\n| block, 4 microphones at 48 kHz | CPU, ms per s | worst us |\n|---|---|---|");
  const Scene scene(48000, 4);
  for (const int blockSize : {256, 512, 1024, 2048, 4096}) {
    CallTimes times;
    for (int run = 0; run < runs; ++run)
      times.add(runChain(scene, 4, factoryWith({{Raw::blockSize, static_cast<float>(blockSize)}})));
    std::printf("| %d | %.2f | %.0f |\n", blockSize, 1e3 * times.perSecond(),
                1e6 * times.quantile(1.0));
  }
}

// What a driver's author could ask for, and what it costs the call and the worker. Each build is a
// new object's first one with that setting; the longest of all runs counts, in processor time.
void printExtremes() {
  std::puts("| 8 microphones at 48 kHz | worst call, ms | build, ms |\n|---|---|---|");
  const auto row = [scene = Scene(48000, 8)](const char* name, const RawValues& settings) {
    CallTimes times;
    double build = 0.0;
    for (int run = 0; run < runs; ++run) {
      Chain chain(scene, 8, factorySettings());
      const auto begin = tools::threadTime();
      chain.core.sets.reload(settings, ProcessingMode::speech, EffectMode::array);
      build = std::max(build, std::chrono::duration<double>(tools::threadTime() - begin).count());
    }
    for (int run = 0; run < runs; ++run) times.add(runChain(scene, 8, settings));
    std::printf("| %s | %.1f | %.1f |\n", name, 1e3 * times.worst(), 1e3 * build);
  };
  row("factory settings", factorySettings());
  row("blocks of 4096", factoryWith({{Raw::blockSize, 4096.0F}}));
  row("blocks of 8192", factoryWith({{Raw::blockSize, 8192.0F}}));
  row("blocks of 15360", factoryWith({{Raw::blockSize, 15360.0F}}));
  row("blocks of 16384", factoryWith({{Raw::blockSize, 16384.0F}}));
  const std::pair<Raw, float> test{Raw::bandTest, 1.0F}, passes{Raw::bandTestPasses, 100.0F};
  row("band test, 100 passes", factoryWith({test, passes}));
  row("the same, blocks of 16384", factoryWith({test, passes, {Raw::blockSize, 16384.0F}}));
  for (const float rate : {1.0F, 8.0F, 100.0F, 47999.0F, 192000.0F})
    row(("inside at " + std::to_string(std::lround(rate)) + " Hz").c_str(),
        factoryWith({{Raw::internalRate, rate}}));
  row("limiter 1.2 s ahead", factoryWith({{Raw::lookAheadTime, 1.2F}}));
  row("all at once: blocks, rate, limiter, delay search",
      factoryWith({{Raw::blockSize, 15360.0F},
                   {Raw::internalRate, 47999.0F},
                   {Raw::lookAheadTime, 1.2F},
                   {Raw::delaySearchBlocks, 8.0F}}));
}

}  // namespace
}  // namespace vellumic

int main(int count, char**) {
  vellumic::cutDenormals();
  if (count > 1) {
    vellumic::printExtremes();
    return 0;
  }
  vellumic::printUnits();
  vellumic::printChain();
  vellumic::printBlockSizes();
  vellumic::printMemory();
}
