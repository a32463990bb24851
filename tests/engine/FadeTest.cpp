// The life of a parameter change, to the frame.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/engine/EngineRig.h"

namespace vellumic {
namespace {

constexpr std::uint32_t rampFrames = 10000;  // at 48 kHz

// The equaliser is shared by both sides of a fade and takes new designs at once, so weights show
// between effect on and off.
RawValues effectOff() {
  RawValues values = equalizerGain(0.5F);
  values[index(Raw::masterEnable)] = 0.0F;
  return values;
}

float expectedAt(std::uint32_t frame) {
  const float weight = static_cast<float>(frame) / static_cast<float>(rampFrames);
  return (1.0F - weight) * 1.0F + weight * 0.5F;
}

// In the middle of a fade from off to on.
struct HalfFaded : EngineRig {
  HalfFaded() : EngineRig(effectOff()) {
    reload(byFade(equalizerGain(0.5F)));
    call(constant(2000, 1.0F));
  }
};

TEST(Fade, RampsFrameByFrameAndTakesOverAtTheNextCall) {
  EngineRig rig(effectOff());
  rig.reload(byFade(equalizerGain(0.5F)));
  const void* const reserved = *rig.core->context.reservedSlot;
  std::uint32_t frame = 0;
  for (; frame < rampFrames; frame += 250) {
    const std::vector<float> output = rig.call(constant(500, 1.0F));
    for (std::uint32_t n = 0; n < 250; ++n)
      ASSERT_EQ(output[2 * n], expectedAt(frame + n)) << frame + n;
  }
  EXPECT_EQ(rig.fade()[Fade::done], 1.0F);
  EXPECT_EQ(rig.call(constant(2, 1.0F)), constant(2, 0.5F));
  EXPECT_NE(*rig.core->context.reservedSlot, reserved);  // goes round with the others
}

TEST(Fade, ALaterSettingWaitsForTheEndAndOnlyTheLatestSurvives) {
  HalfFaded rig;
  rig.reload(effectOff());
  rig.reload(equalizerGain(0.5F));
  rig.reload(effectOff());
  EXPECT_EQ(rig.call(constant(2 * rampFrames, 1.0F)).back(), 0.5F);  // ends before the call does
  EXPECT_EQ(rig.call(constant(2, 1.0F)), constant(2, 0.5F));         // the faded set, for one call
  EXPECT_EQ(rig.call(constant(2, 1.0F)), constant(2, 1.0F));
  // With no fade requested every frame sets the clock to zero.
  for (const float weight : {0.0F, 3.0F}) {
    rig.fade()[Fade::counter] = rig.fade()[Fade::phase] = 3.0F;
    rig.fade()[Fade::weight] = weight;
    rig.call(constant(2, 1.0F));
    for (const Fade entry : {Fade::counter, Fade::phase, Fade::weight})
      EXPECT_EQ(rig.fade()[entry], 0.0F) << weight;
  }
}

TEST(Fade, SilenceStopsTheClockAndABadFlagTouchesNothing) {
  HalfFaded rig;
  EXPECT_EQ(rig.call(constant(64, 1.0F), buffer_flags::silent), constant(64, 0.0F));
  EXPECT_EQ(rig.call(constant(2, 1.0F), buffer_flags::invalid), constant(2, EngineRig::untouched));
  EXPECT_EQ(rig.call(constant(2, 1.0F))[0], expectedAt(1000));
}

// Each of the two fade blocks latches the hold at the end of its first ramp.
TEST(Fade, TheHoldComesWithTheThirdFade) {
  constexpr float hold = 300.0F;
  EngineRig rig(effectOff());
  for (int fade = 1; fade <= 3; ++fade) {
    rig.reload(byFade(fade % 2 == 1 ? equalizerGain(0.5F) : effectOff()));
    rig.image()[Entry::holdLength] = hold;
    EXPECT_EQ(rig.call(constant(2 * 301, 1.0F)) == constant(2 * 301, 1.0F), fade == 3) << "unheard";
    // The ramp begins in the frame in which the hold has run out.
    EXPECT_EQ(rig.fade()[Fade::weight], (fade < 3 ? 301.0F : 1.0F) / rampFrames) << fade;
    rig.call(constant(2 * rampFrames, 1.0F));
    rig.call(constant(2, 1.0F));
  }
}

TEST(Fade, VolumesWrittenInMidFadeSurviveBothExchanges) {
  EngineRig rig(equalizerGain(0.5F));
  for (int fade = 0; fade < 3; ++fade) {
    rig.reload(byFade(equalizerGain(0.5F)));
    rig.core->sets.setVolumes({.master = 1.0F, .first = 1.0F, .second = 1.0F});
    rig.call(constant(200, 0.0F));  // makes the mask again
    const float volume = 0.1F * static_cast<float>(fade + 1);
    rig.core->sets.setVolumes({.master = volume, .first = volume, .second = volume});
    rig.call(constant(2 * rampFrames, 0.0F));
    rig.call(constant(2, 0.0F));
    EXPECT_EQ(rig.core->sets.masterVolume(), volume);
    EXPECT_EQ(rig.core->sets.currentMask().at(23), 1);
    EXPECT_EQ(loadVolumes(*rig.core->context.pendingImageSlot).master, volume);
  }
}

TEST(Fade, AnUnlockInMidFadeLeavesNothingBehind) {
  HalfFaded rig;
  EXPECT_EQ(*rig.core->context.toggle, 1);
  EXPECT_EQ(rig.fade()[Fade::phase], 1.0F);
  EXPECT_EQ(rig.core->sets.currentMask().at(672), 1);
  EXPECT_EQ(rig.core->sets.pendingMask().at(8), 1);  // of the set in force at the lock
  rig.lock({});
  EXPECT_EQ(*rig.core->context.toggle, 0);
  EXPECT_EQ(rig.call(constant(8, 1.0F)), constant(8, 0.5F));
}

// The array without its stages.
RawValues bareArray(std::initializer_list<std::pair<Raw, float>> changes = {}) {
  RawValues values = factoryWith(changes);
  for (const Raw stage :
       {Raw::noisePostfilter, Raw::echoCancellation, Raw::beamformer, Raw::levelControl})
    values[index(stage)] = 0.0F;
  return values;
}

// A side that is on sounds like a stream that never fades, 70 ms behind, one that is off like the
// input, at every microphone.
TEST(Fade, OfAPipelineMixesWhatBothSettingsSoundLike) {
  const RawValues arrayOn = bareArray();
  const RawValues offInThisMode = bareArray({{Raw::keepInDefaultMode, 0.0F}});
  const RawValues masterOff = bareArray({{Raw::masterEnable, 0.0F}});
  const RawValues onlyMarkedOn = bareArray({{Raw::masterEnable, 0.5F}});  // all but the pipeline
  const RawValues trims = bareArray({{Raw::inputGain, 2.0F}, {Raw::outputGain, 0.125F}});
  const RawValues louder = bareArray({{Raw::inputGain, 2.0F}, {Raw::outputGain, 0.5F}});
  constexpr EffectMode array = EffectMode::array, fourChannel = EffectMode::arrayFourChannel;
  const struct {
    const RawValues &from, &to;
    EffectMode mode = array;
    std::uint32_t channels = 4;
  } cases[] = {{trims, louder},
               {trims, louder, array, 14},
               {trims, louder, fourChannel},
               {arrayOn, masterOff},
               {masterOff, arrayOn},
               {arrayOn, onlyMarkedOn},
               {onlyMarkedOn, arrayOn},
               {arrayOn, offInThisMode},
               {offInThisMode, arrayOn},
               {arrayOn, masterOff, fourChannel}};
  int number = 0;
  for (const auto& [from, to, mode, channels] : cases) {
    SCOPED_TRACE(number++);
    const RigSetup setup{.mode = mode,
                         .format = {.inputChannels = channels, .outputChannels = channels}};
    EngineRig rig(from, setup), outgoing(from, setup), incoming(from, setup);
    constexpr std::uint32_t callFrames = 480;
    float worst = 0.0F;
    for (std::uint32_t call = 0; call < 70; ++call) {
      std::vector<float> input = sine(callFrames, channels, 0.02, call * callFrames);
      for (std::size_t s = 0; s < input.size(); ++s)
        input[s] /= static_cast<float>(1 + s % channels);
      if (call == 30) {
        rig.reload(byFade(to));
        incoming.reload(to);
      }
      const std::vector<float> heard = rig.call(input), before = outgoing.call(input),
                               after = incoming.call(input);
      if (call == 45 && incoming.core->engine.latestRunsPipeline()) {
        EXPECT_EQ(rig.core->engine.pipeline.probe().adoptions,
                  incoming.core->engine.pipeline.probe().adoptions);
      }
      for (std::size_t s = 0; s < heard.size(); ++s) {
        const float frame = static_cast<float>(call * callFrames + s / channels);
        const float weight = std::clamp((frame - 30.0F * callFrames) / rampFrames, 0.0F, 1.0F);
        worst =
            std::max(worst, std::abs((1.0F - weight) * before[s] + weight * after[s] - heard[s]));
      }
    }
    EXPECT_LT(worst, 1e-5F);
    const FrameEngine& engine = rig.core->engine;
    EXPECT_EQ(engine.pipeline.running(), engine.latestRunsPipeline()) << "after the fade";
    EXPECT_EQ(engine.pipeline.probe().referenceEnergy > 0.0F, mode == fourChannel);
  }
}

// Both sides of a fade run through one set of sections, whose memories start at zero: audible for
// the length of the fade, and kept. They start so, too, behind a call with a bad sample.
TEST(Fade, InTheEqualiserStartsItsMemoriesAnew) {
  RawValues peak = equalizerGain(2.0F);
  for (const int side : {0, 1}) {
    peak[index(bandSlot(side, 0, BandField::type))] = 1.0F;
    peak[index(bandSlot(side, 0, BandField::frequency))] = 1000.0F;
  }
  EngineRig rig(peak), struck(peak), fresh(peak);
  rig.call(sine(480, 2, 0.13));
  struck.call(constant(960, std::nanf("")));
  rig.reload(byFade(peak));
  const std::vector<float> first = sine(1, 2, 0.13, 480), second = sine(1, 2, 0.13, 481);
  const std::vector<float> heard = fresh.call(first);
  EXPECT_EQ(rig.call(first), heard);
  EXPECT_EQ(struck.call(first), heard);
  EXPECT_NE(rig.call(second), fresh.call(second));  // the other side has had the frame, too
}

}  // namespace
}  // namespace vellumic
