// The pipeline sample by sample at 16 kHz, with plain loops around the stages, beside the one that
// works in runs: the same bits, whatever is set and wherever a run begins.
#include <gtest/gtest.h>

#include "array/ArrayNoiseProcessing.h"
#include "frontend/BoundedSample.h"
#include "tests/frontend/SpeakerRoom.h"

namespace vellumic {
namespace {

class PipelineModel {
 public:
  PipelineModel(const PipelineSettings& settings, std::size_t microphones, Speakers& speakers)
      : loopback(openerOf(speakers)),
        s(settings),
        mics(microphones),
        n(static_cast<Eigen::Index>(settings.blockSize)),
        noise(static_cast<int>(mics), 512),
        references(s.blockSize),
        heard(mics),
        highPass(mics),
        collected(Eigen::ArrayXXf::Zero(n, static_cast<Eigen::Index>(mics))),
        finished(collected),
        reference(Eigen::ArrayXXf::Zero(n, 2)),
        popped(2, std::vector<float>(static_cast<std::size_t>(n))) {
    for (BiquadSection& section : highPass) section.set(3, 150.0F, 1.0F, 0.7F, 16000.0F);
    for (BiquadSection& section : bandTest) section.set(3, 800.0F, 1.0F, 0.7F, 16000.0F);
    for (std::size_t m = 0; m < mics; ++m) cancellers.emplace_back(s.blockSize);
    estimator.setBlockSize(s.blockSize);
    estimator.setWindowSize(4 * s.blockSize);
    estimator.rebuild();
    loopback.setTargetRate(16000);
    loopback.start();
    apply(settings);
    noise.applyParameters(s.beamformer, s.noiseEstimator, s.spectralGain);
  }

  void apply(const PipelineSettings& settings) {
    s = settings;
    noise.beamformerEnabled = s.beamformerEnabled;
    noise.postfilterEnabled = s.postfilterEnabled;
    references.apply(s.echo);
    for (EchoCanceller& canceller : cancellers) canceller.apply(s.echo);
    level.apply(s.level);
  }

  void run(float* frame) {
    for (std::size_t m = 0; m < mics; ++m) {
      heard[m].push_back(soundSample(frame[m]));
      const int past = static_cast<int>(heard[m].size()) - 1 - micDelay;
      float sample = past < 0 ? 0.0F : heard[m][static_cast<std::size_t>(past)];
      highPass[m].process(sample);
      collected(at, static_cast<Eigen::Index>(m)) = sample;
    }
    float first = finished(at, 0);
    const bool alike = s.beamformerEnabled || s.postfilterEnabled || s.level.levelControlEnabled;
    if (s.level.levelControlEnabled) level.process(finished(at, 0), first);
    for (std::size_t m = 0; m < mics; ++m)
      frame[m] = alike ? first : finished(at, static_cast<Eigen::Index>(m));
    if (++at == n) {
      at = 0;
      processBlock();
      finished = collected;
    }
    if (at % 128 == 0 && at + 128 <= n)
      noise.process(finished.middleRows(at, 128), finished.col(0).segment(at, 128));
  }

  LoopbackSource loopback;
  int micDelay = 1024, locks = 0, unlocks = 0, cancelled = 0;
  bool locked = false;

 private:
  void processBlock() {
    const bool passedOver = s.bandTest || !s.echoCancelEnabled || s.echoBypass;
    if (s.bandTest)
      for (int pass = 0; pass < std::min(s.bandTestPasses, 102400 / s.blockSize); ++pass)
        for (Eigen::Index j = 0; j < n; ++j)
          for (const Eigen::Index m : {0, 1})
            bandTest[static_cast<std::size_t>(m)].process(collected(j, m));
    if (!passedOver) cancelEcho();
    skipped = passedOver;
  }

  void cancelEcho() {
    bool afresh = skipped;
    if (skipped)
      loopback.discard();
    else
      afresh = loopback.drain();
    if (afresh) {
      locked = false;
      estimator.reset();
    }
    const bool fresh = loopback.popBlock(popped, s.blockSize);
    for (const Eigen::Index r : {0, 1})
      reference.col(r) =
          Eigen::Map<const Eigen::ArrayXf>(popped[static_cast<std::size_t>(r)].data(), n);
    if (!fresh) {
      if (s.referenceMonitor) collected.col(1) = 0.0F;
      return;
    }
    if (!locked)
      align();
    else if (cancellers[0].converged && cancellers[0].covarianceEnergy > 0.03F)
      ++unlocks, locked = false;
    if (s.referenceMonitor) {
      collected.col(1) = reference.col(0);
      return;
    }
    const auto samples = [&](auto& matrix, Eigen::Index c) {
      return std::span(matrix.col(c).data(), static_cast<std::size_t>(n));
    };
    references.advance(samples(reference, 0), samples(reference, 1));
    for (std::size_t m = 0; m < mics; ++m) {
      const auto column = samples(collected, static_cast<Eigen::Index>(m));
      cancellers[m].process(references, column, column);
    }
    ++cancelled;
  }

  void align() {
    estimator.update(reference, collected);
    const int lag = estimator.committedLag;
    if (lag == 0) return;
    const int target = static_cast<int>(std::lround(0.1 * s.blockSize));
    if (std::abs(lag - target) > std::lround(0.3 * target)) {
      const int correction = lag - target;
      if (loopback.delay() + correction >= 0)
        loopback.setDelay(loopback.delay() + correction);
      else
        micDelay -= correction;
    }
    estimator.reset();
    locked = true;
    ++locks;
  }

  PipelineSettings s;
  std::size_t mics;
  Eigen::Index n, at = 0;
  bool skipped = false;
  ArrayNoiseProcessing noise;
  OutputLevelControl level;
  DelayEstimator estimator;
  ReferenceSpectra references;
  std::vector<EchoCanceller> cancellers;
  std::vector<std::vector<float>> heard;
  std::vector<BiquadSection> highPass;
  std::array<BiquadSection, 2> bandTest;
  Eigen::ArrayXXf collected, finished, reference;
  ChannelArrays popped;
};

// From a second on, one thing at a time.
struct Event {
  int block;
  Raw slot;
  float value;
};
struct Scene {
  const char* name;
  int microphones = 2;
  std::size_t echoDelay = 320, late = 0;
  std::vector<std::pair<Raw, float>> settings;
  std::vector<Event> events{};
  int muteFrom = -1, pauseFrom = -1;  // blocks; for ten of them
  std::size_t movedEcho = 0;          // from the middle on
};
void PrintTo(const Scene& scene, std::ostream* stream) { *stream << scene.name; }
class PipelineModels : public testing::TestWithParam<Scene> {};

TEST_P(PipelineModels, TheSameBitsAsPlainLoops) {
  const Scene& scene = GetParam();
  const auto mics = static_cast<std::size_t>(scene.microphones);
  Speakers speakers, others;
  speakers.late = others.late = scene.late;
  PipelineRig rig(openerOf(speakers));
  for (const auto& [slot, value] : scene.settings) rig.set(slot, value);
  rig.apply();
  rig.handover.prepareStream(rig.handover.settings().blockSize, scene.microphones, false);
  rig.apply();
  rig.pipeline.startLoopback();
  PipelineModel model(rig.handover.settings(), mics, others);
  const int block = rig.handover.settings().blockSize, blocks = 100;
  Noise noise(3);
  std::minstd_rand random(2);
  std::vector<float> frames, expected;
  for (int done = 0, next = 0; done < blocks * block; done = next) {
    // Changes come between blocks, as the loudspeakers of both play in step with whole runs.
    next = std::min<int>(done + 1 + static_cast<int>(random() % 200), (done / block + 1) * block);
    if (done % block == 0) {
      const int number = done / block;
      for (const Event& event : scene.events)
        if (event.block == number) rig.set(event.slot, event.value);
      rig.stream.muted = scene.muteFrom >= 0 && number / 10 == scene.muteFrom / 10;
      rig.apply();
      model.apply(rig.handover.settings());
      speakers.playing = others.playing =
          scene.pauseFrom < 0 || number / 10 != scene.pauseFrom / 10;
    }
    frames.clear();
    for (int i = done; i < next; ++i) {
      speakers.tick();
      others.tick();
      const bool moved = scene.movedEcho != 0 && i > blocks * block / 2;
      const float echo = speakers.echo(moved ? scene.movedEcho : scene.echoDelay);
      for (std::size_t m = 0; m < mics + 1; ++m)
        frames.push_back((1.0F - 0.2F * static_cast<float>(m)) * echo + 0.02F * noise());
      if (i % 997 == 0) frames.back() = frames[frames.size() - 2] = std::nanf("");
    }
    expected = frames;
    rig.pipeline.processFrames(frames.data(), mics + 1, static_cast<std::size_t>(next - done));
    for (std::size_t i = 0; i < expected.size(); i += mics + 1) model.run(&expected[i]);
    for (std::size_t i = 0; i < frames.size(); ++i)
      ASSERT_TRUE(frames[i] == expected[i] || std::isnan(expected[i])) << done << ' ' << i;
    const PipelineProbe& probe = rig.pipeline.probe();
    ASSERT_EQ(probe.delayLocked, model.locked) << done / block;
    ASSERT_EQ(probe.loopbackDelay, model.loopback.delay());
    ASSERT_EQ(probe.microphoneDelay, model.micDelay);
    ASSERT_EQ(probe.cancelledBlocks, model.cancelled);
  }
}

const std::vector<std::pair<Raw, float>> everything{{Raw::echoCancellation, 1.0F},
                                                    {Raw::beamformer, 1.0F},
                                                    {Raw::noisePostfilter, 1.0F},
                                                    {Raw::levelControl, 1.0F}};
const std::vector<std::pair<Raw, float>> echoOnly{{Raw::echoCancellation, 1.0F},
                                                  {Raw::echoUpdateThreshold, 0.1F}};
INSTANTIATE_TEST_SUITE_P(
    Scenes, PipelineModels,
    testing::Values(
        Scene{.name = "everything", .settings = everything, .muteFrom = 40, .pauseFrom = 70},
        Scene{.name = "bare", .microphones = 3, .settings = {{Raw::blockSize, 250.0F}}},
        Scene{.name = "movedEcho", .microphones = 5, .settings = echoOnly, .movedEcho = 900},
        // On both edges of what counts as aligned, 102 +- 31 samples of a block of 1024.
        Scene{.name = "lag133", .echoDelay = 133, .settings = echoOnly},
        Scene{.name = "lag134", .echoDelay = 134, .settings = echoOnly},
        Scene{.name = "lag71", .echoDelay = 71, .settings = echoOnly},
        Scene{.name = "lag70", .echoDelay = 70, .settings = echoOnly},
        Scene{.name = "lateReferences", .late = 1500, .settings = echoOnly},
        Scene{.name = "monitor",
              .settings = {{Raw::echoCancellation, 1.0F}, {Raw::referenceMonitor, 1.0F}},
              .pauseFrom = 50},
        Scene{.name = "bandTest",
              .settings = {{Raw::blockSize, 2048.0F},
                           {Raw::bandTest, 1.0F},
                           {Raw::bandTestPasses, 3.0F}},
              .events = {{10, Raw::bandTestPasses, 100.0F}, {20, Raw::bandTest, 0.0F}}},
        Scene{.name = "levelControl",
              .microphones = 4,
              .settings = {{Raw::levelControl, 1.0F}},
              .events = {{30, Raw::levelControl, 0.0F}, {60, Raw::levelControl, 1.0F}}},
        Scene{.name = "stagesComeAndGo",
              .settings = everything,
              .events = {{20, Raw::beamformer, 0.0F},
                         {30, Raw::noisePostfilter, 0.0F},
                         {40, Raw::echoCancellation, 0.0F},
                         {50, Raw::beamformer, 1.0F},
                         {60, Raw::echoCancellation, 1.0F},
                         {70, Raw::beamformer, 0.0F},
                         {80, Raw::levelControl, 0.0F}}}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace vellumic
