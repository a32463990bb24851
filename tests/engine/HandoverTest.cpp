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

class Handover : public testing::TestWithParam<EffectMode> {};
INSTANTIATE_TEST_SUITE_P(Modes, Handover,
                         testing::Values(EffectMode::equalizer, EffectMode::array));

TEST_P(Handover, ABuilderWithPausesUnderARunningStream) {
  // Settings that differ in everything that is handed over: designs, records, and sized parts. The
  // last switches the pipeline off, a record that waits for the end of its fade.
  const RawValues first = equalizerGain(0.5F);
  RawValues settings[] = {first, equalizerGain(0.25F), byFade(first), byFade(first)};
  settings[1][index(Raw::blockSize)] = 512.0F;
  settings[1][index(Raw::noiseWindowFrames)] = 100.0F;
  settings[2][index(Raw::internalRate)] = 24000.0F;
  settings[3][index(Raw::masterEnable)] = 0.0F;
  EngineRig rig(first, {.mode = GetParam(),
                        .processingMode = ProcessingMode::speech,
                        .format = {.sampleRate = 16000.0F}});
  std::atomic<bool> running = true;
  std::atomic<int> builds = 0;
  std::thread builder([&] {
    while (running) {
      rig.reload(settings[++builds % 4]);
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
  for (int call = 0; call < 300 || builds < 20; ++call) {
    const auto adoptedBefore = rig.core->engine.pipeline.probe().adoptions;
    const float* const imageBefore = *rig.core->context.imageSlot;
    rig.call(input);
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
