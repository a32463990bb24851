// The pipeline that works in runs beside its model: the same bits, whatever is set, whenever it
// changes and wherever a run begins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>

#include "tests/frontend/PipelineModel.h"
#include "tests/frontend/PipelineRig.h"

namespace vellumic {
namespace {

struct Bench {
  // What the microphones hear in the next 10 ms.
  const std::vector<float>& hear() {
    const auto hz = static_cast<std::uint32_t>(rig.stream.deviceRate);
    others.hear(heard, hz, channels);
    speakers.hear(heard, hz, channels);
    return heard;
  }
  void apply() {
    rig.apply();
    model->apply(rig.handover.settings());
  }
  PlayingSpeakers speakers, others;
  PipelineRig rig{openerOf(speakers)};
  std::unique_ptr<PipelineModel> model{};
  std::uint32_t channels = 0;  // one more than microphones
  std::vector<float> heard{};
};

using Act = std::function<void(Bench&)>;
Act set(Raw slot, float value) {
  return [=](Bench& bench) {
    bench.rig.set(slot, value);
    bench.apply();
  };
}
Act mute(bool muted) {
  return [=](Bench& bench) {
    bench.rig.stream.muted = muted;
    bench.apply();
  };
}
Act play(bool playing) {
  return [=](Bench& bench) { bench.speakers.playing = bench.others.playing = playing; };
}
Act echo(std::size_t delay) {
  return [=](Bench& bench) { bench.speakers.echoDelay = bench.others.echoDelay = 3 * delay; };
}
// So many calls go by in silence, or between an unlock and a lock, while the music plays.
Act pass(int calls) {
  return [=](Bench& bench) {
    for (int n = 0; n < calls; ++n) bench.hear();
    bench.rig.pipeline.skipFrames();
    bench.model->skip();
  };
}
Act lock(int callsBefore) {
  return [=](Bench& bench) {
    for (int n = 0; n < callsBefore; ++n) bench.hear();
    // New settings that nobody adopts, and which are taken back.
    PipelineRig& rig = bench.rig;
    PipelineHandover& handover = rig.handover;
    const float window = rig.raw[index(Raw::noiseWindowFrames)];
    rig.set(Raw::noiseWindowFrames, window + 40.0F);
    handover.build(rig.raw, rig.stream);
    rig.set(Raw::noiseWindowFrames, window);
    handover.prepareStream(handover.settings().blockSize, handover.channels(), false);
    rig.apply();
    bench.model->lock();
  };
}

struct Scene {
  const char* name;
  int microphones = 2;
  float deviceRate = 16000.0F;
  std::size_t late = 0;                          // packets
  bool endsLocked = false;                       // and the echo is gone
  std::vector<std::pair<int, Act>> events = {};  // by frame; those of frame 0 before the lock
  int frames = 100000;
};
void PrintTo(const Scene& scene, std::ostream* stream) { *stream << scene.name; }
class PipelineModels : public testing::TestWithParam<Scene> {};

TEST_P(PipelineModels, TheSameBitsAsPlainLoops) {
  const Scene& scene = GetParam();
  Bench bench;
  PipelineRig& rig = bench.rig;
  bench.speakers.late = bench.others.late = scene.late;
  rig.stream.deviceRate = scene.deviceRate;
  ASSERT_TRUE(rig.handover.setChannels(scene.microphones));
  rig.apply();
  bench.model =
      std::make_unique<PipelineModel>(rig.handover.settings(), scene.microphones, bench.others);
  rig.pipeline.startLoopback();
  // The fractional converters count outputs from call to call, so that rounding follows them.
  const bool whole = std::fmod(scene.deviceRate, 8000.0F) == 0.0F && scene.deviceRate != 24000.0F;
  const int ten = static_cast<int>(scene.deviceRate) / 100;
  bench.channels = static_cast<std::uint32_t>(scene.microphones) + 1;
  const std::size_t width = bench.channels;
  std::minstd_rand random(2);
  std::vector<float> frames, expected;
  auto event = scene.events.begin();
  for (int done = 0, next = 0; done < scene.frames; done = next) {
    for (; event != scene.events.end() && event->first == done; ++event) event->second(bench);
    const int stop = event == scene.events.end() ? scene.frames : event->first;
    if (done % ten == 0) bench.hear();
    next = std::min({done + 1 + static_cast<int>(random() % 200), (done / ten + 1) * ten, stop});
    const auto from = static_cast<std::ptrdiff_t>(width) * (done % ten);
    frames.assign(bench.heard.begin() + from,
                  bench.heard.begin() + from + static_cast<std::ptrdiff_t>(width) * (next - done));
    for (std::size_t i = 0; i < frames.size(); ++i)
      frames[i] *= 1.0F - 0.2F * static_cast<float>(i % width);
    if (done % 3 == 0) frames.back() = frames[frames.size() - 2] = std::nanf("");
    expected = frames;
    if (next - done == 1)
      rig.pipeline.processFrame(frames.data());
    else
      rig.pipeline.processFrames(frames.data(), width, static_cast<std::size_t>(next - done));
    for (std::size_t i = 0; i < expected.size(); i += width) bench.model->run(&expected[i]);
    for (std::size_t i = 0; i < frames.size(); ++i)
      ASSERT_TRUE(whole ? frames[i] == expected[i] || std::isnan(expected[i])
                        : !(std::abs(frames[i] - expected[i]) > 1e-6F))
          << done << ' ' << i;
    const PipelineProbe &probe = rig.pipeline.probe(), &model = bench.model->probe;
    const auto state = [](const PipelineProbe& p) {
      return std::tuple(p.blocks, p.cancelledBlocks, p.lastLag, p.delayLocked, p.loopbackDelay,
                        p.microphoneDelay, p.streaming, p.converged, p.signalActive);
    };
    ASSERT_EQ(state(probe), state(model)) << done;
    for (float PipelineProbe::*const level :
         {&PipelineProbe::microphoneEnergy, &PipelineProbe::residualEnergy,
          &PipelineProbe::referenceEnergy, &PipelineProbe::covarianceEnergy,
          &PipelineProbe::levelGain})
      ASSERT_NEAR(probe.*level, model.*level, 1e-4F * model.*level + 1e-9F) << done;
  }
  const PipelineProbe& end = rig.pipeline.probe();
  if (scene.endsLocked) {
    EXPECT_TRUE(end.delayLocked && end.streaming);
    EXPECT_LT(end.residualEnergy, 0.05F * end.microphoneEnergy);
  }
}

const std::vector<std::pair<int, Act>> everything{{0, set(Raw::echoCancellation, 1.0F)},
                                                  {0, set(Raw::beamformer, 1.0F)},
                                                  {0, set(Raw::noisePostfilter, 1.0F)},
                                                  {0, set(Raw::levelControl, 1.0F)}};
std::vector<std::pair<int, Act>> with(std::vector<std::pair<int, Act>> events,
                                      const std::vector<std::pair<int, Act>>& more) {
  events.insert(events.end(), more.begin(), more.end());
  return events;
}
Scene echoOf(const char* name, std::size_t delay,
             const std::vector<std::pair<int, Act>>& events = {}) {
  return {.name = name,
          .endsLocked = true,
          .events = with({{0, set(Raw::echoCancellation, 1.0F)},
                          {0, set(Raw::echoUpdateThreshold, 0.1F)},
                          {0, echo(delay)}},
                         events)};
}
// At other rates of the device, a new block in between.
Scene deviceAt(const char* name, float deviceRate) {
  return {.name = name,
          .microphones = 3,
          .deviceRate = deviceRate,
          .events = {{0, set(Raw::blockSize, 300.0F)},
                     {6000, set(Raw::levelControl, 1.0F)},
                     {12000, set(Raw::levelControl, 0.0F)},
                     {18000, set(Raw::beamformer, 1.0F)},
                     {24000, set(Raw::beamformer, 0.0F)},
                     {30000, set(Raw::blockSize, 256.0F)},
                     {36000, set(Raw::noisePostfilter, 1.0F)},
                     {42000, set(Raw::noisePostfilter, 0.0F)}},
          .frames = 48000};
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, PipelineModels,
    testing::Values(
        Scene{.name = "everything",
              .events = with(everything,
                             {{41000, mute(true)},
                              {51000, mute(false)},
                              {55000, set(Raw::gainFloor1, 0.1F)},
                              {60000, set(Raw::noiseSmoothingHalfWidth, 30.0F)},
                              {64000, set(Raw::noiseWindowFrames, 20.0F)},
                              {64000, set(Raw::noiseGamma0, 3.0F)},
                              {66000, set(Raw::thresholdScale, 0.5F)},
                              {71000, play(false)},
                              {82000, play(true)},
                              {90000, lock(0)}})},
        Scene{.name = "bare",
              .microphones = 3,
              .events = {{0, set(Raw::blockSize, 250.0F)},
                         {50000, set(Raw::delaySearchBlocks, 8.0F)},
                         {60100, set(Raw::delaySearchBlocks, 5.0F)}}},
        // On both edges of what counts as aligned, 102 +- 31 samples of a block of 1024.
        echoOf("lag133", 133), echoOf("lag134", 134), echoOf("lag71", 71), echoOf("lag70", 70),
        echoOf("far", 3200),
        echoOf("beyondFourBlocks", 4800, {{30001, set(Raw::delaySearchBlocks, 8.0F)}}),
        Scene{.name = "moves",
              .microphones = 5,
              .events = echoOf("", 320,
                               {{20000, set(Raw::echoPowerSmoothing, 0.8F)},
                                {25000, set(Raw::echoCrossFactor, 0.5F)},
                                {30000, echo(900)}})
                            .events},
        echoOf("otherBlock", 3200,
               {{30300, set(Raw::blockSize, 512.0F)}, {50000, set(Raw::blockSize, 1024.0F)}}),
        echoOf("passed", 320,
               {{30000, pass(1)},
                {40000, pass(300)},
                {60000, set(Raw::keepInDefaultMode, 0.0F)},
                {70000, set(Raw::keepInDefaultMode, 1.0F)}}),
        echoOf("relocked", 320, {{30000, lock(1)}, {40000, lock(300)}}),
        Scene{.name = "late", .late = 10, .events = echoOf("", 320).events},
        Scene{.name = "monitor",
              .events = {{0, set(Raw::echoCancellation, 1.0F)},
                         {0, set(Raw::referenceMonitor, 1.0F)},
                         {51200, play(false)},
                         {61440, play(true)}}},
        Scene{.name = "bandTest",
              .events = {{0, set(Raw::blockSize, 2048.0F)},
                         {0, set(Raw::bandTest, 1.0F)},
                         {0, set(Raw::bandTestPasses, 3.0F)},
                         {20480, set(Raw::bandTestPasses, 100.0F)},
                         {40960, set(Raw::bandTest, 0.0F)}}},
        Scene{.name = "stagesComeAndGo",
              .microphones = 4,
              .events = with(everything, {{20000, set(Raw::beamformer, 0.0F)},
                                          {30500, set(Raw::noisePostfilter, 0.0F)},
                                          {40100, set(Raw::echoCancellation, 0.0F)},
                                          {50010, set(Raw::beamformer, 1.0F)},
                                          {60001, set(Raw::echoCancellation, 1.0F)},
                                          {70000, set(Raw::beamformer, 0.0F)},
                                          {80000, set(Raw::levelControl, 0.0F)},
                                          {90000, set(Raw::levelControl, 1.0F)}})},
        deviceAt("at8000", 8000.0F), deviceAt("at22050", 22050.0F), deviceAt("at24000", 24000.0F),
        deviceAt("at44100", 44100.0F), deviceAt("at48000", 48000.0F), deviceAt("at88200", 88200.0F),
        deviceAt("at96000", 96000.0F), deviceAt("at192000", 192000.0F)),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace vellumic
