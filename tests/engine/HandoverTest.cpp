// Settings handed to a running frame path by another thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "frontend/BankPair.h"
#include "frontend/BlockPart.h"
#include "tests/engine/EngineRig.h"

namespace vellumic {
namespace {

using namespace std::chrono_literals;

// Settings that differ in everything that is handed over: designs, records, and sized parts. The
// last switches the pipeline off, a record that waits for the end of its fade.
std::vector<RawValues> differentSettings() {
  RawValues first = equalizerGain(0.5F), second = equalizerGain(0.25F), third = first;
  second[index(Raw::blockSize)] = 512.0F;
  second[index(Raw::noiseWindowFrames)] = 100.0F;
  third[index(Raw::internalRate)] = 24000.0F;
  RawValues off = first;
  off[index(Raw::masterEnable)] = 0.0F;
  return {first, second, byFade(third), byFade(off)};
}

#ifdef VELLUMIC_SHORT_TESTS
constexpr int fewCalls = 150;
#else
constexpr int fewCalls = 1000;
#endif

class Handover : public testing::TestWithParam<EffectMode> {};
INSTANTIATE_TEST_SUITE_P(Modes, Handover,
                         testing::Values(EffectMode::equalizer, EffectMode::array));

TEST_P(Handover, ABuilderWithPausesUnderARunningStream) {
  const std::vector<RawValues> settings = differentSettings();
  EngineRig rig(settings[0], {.mode = GetParam(),
                              .processingMode = ProcessingMode::speech,
                              .format = {.sampleRate = 16000.0F}});
  std::atomic<bool> running = true;
  std::atomic<int> builds = 0;
  std::thread builder([&] {
    while (running) {
      rig.reload(settings[static_cast<std::size_t>(++builds) % settings.size()]);
      std::this_thread::sleep_for(2ms);
    }
  });
  std::thread volume([&] {
    for (float level = 0.0F; running; level = 1.0F - level) {
      rig.core->sets.setVolumes({.master = level, .first = level, .second = level});
      std::this_thread::sleep_for(1ms);
    }
  });

  int adoptions = 0, mostParts = 0;
  const std::vector<float> input = sine(160, 2, 0.1);
  std::vector<float> output(input.size());
  for (int call = 0; call < fewCalls || builds < 20; ++call) {
    const auto adoptedBefore = rig.core->engine.pipeline.probe().adoptions;
    const float* const imageBefore = *rig.core->context.imageSlot;
    rig.callInto(input, output);
    if (rig.core->engine.pipeline.probe().adoptions != adoptedBefore ||
        *rig.core->context.imageSlot != imageBefore)
      ++adoptions;
    mostParts = std::max({mostParts, BlockPart::alive(), BankPair::alive()});
    std::this_thread::sleep_for(200us);  // the pause of a real stream lets the builder in
  }
  running = false;
  builder.join();
  volume.join();
  EXPECT_GE(adoptions, 5) << builds << " builds";
  EXPECT_LE(mostParts, 3);  // one in use, one waiting or retired, one under construction
  EXPECT_LE(BlockPart::alive(), 2);
  EXPECT_LE(BankPair::alive(), 2);
}

}  // namespace
}  // namespace vellumic
