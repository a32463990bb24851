// The whole chain with its loudspeakers for a long time, while everything around it changes.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <random>

#include "parameters/Catalogue.h"
#include "platform/FloatingPointMode.h"
#include "tests/frontend/SpeakerRoom.h"

namespace vellumic {
namespace {

// Rounds of 30 s; VELLUMIC_SOAK_ROUNDS=120 makes an hour.
int roundsWanted() {
  if (const char* wanted = std::getenv("VELLUMIC_SOAK_ROUNDS")) return std::atoi(wanted);
#ifdef VELLUMIC_SHORT_TESTS
  return 1;
#else
  return 6;
#endif
}

class Soak : public ::testing::Test {
 protected:
  Soak() { cutDenormals(); }

  bool chance(int oneIn) { return random() % static_cast<unsigned>(oneIn) == 0; }

  // Every slot of the catalogue somewhere in its sensible range.
  void drawSensible() {
    for (const Parameter& parameter : catalogue()) {
      const bool toggle = parameter.kind == ParameterKind::toggle;
      std::uniform_real_distribution<float> inside(parameter.low, parameter.high);
      room.rig.set(parameter.slot, toggle ? static_cast<float>(random() % 2) : inside(random));
    }
    keepRunning();
  }
  void drawAnyBits() {
    for (float& value : room.rig.raw)
      value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    keepRunning();
  }
  void drawGood() {
    for (std::size_t i = 0; i < rawCount; ++i) room.rig.raw[i] = factoryValue(static_cast<Raw>(i));
    keepRunning();
    room.rig.stream.muted = false;
    room.speakers.playing = true;
    room.rig.apply();
  }
  void keepRunning() {
    room.rig.set(Raw::masterEnable, 1.0F);
    room.rig.set(Raw::keepInDefaultMode, 1.0F);
  }
  void changeSurroundings() {
    room.rig.stream.muted = chance(5);
    room.speakers.playing = !chance(4);
    if (chance(5)) room.rig.handover.prepareStream(1024, 2 + static_cast<int>(random() % 3), false);
    room.rig.apply();
    if (!chance(5)) return;
    for (std::size_t n = random() % (2 * rate); n > 0; --n) room.speakers.tick();
    room.rig.pipeline.skipFrames();
  }
  std::mt19937 random{77};
  Room room{320};
};

TEST_F(Soak, SensibleSettingsKeepEverySampleFiniteAndAnyBitsAreForgotten) {
  const int rounds = roundsWanted();
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    for (int second = 0; second < 15; ++second) {
      drawSensible();
      changeSurroundings();
      room.play(1.0F);
      ASSERT_TRUE(room.allFinite) << "second " << second;
    }
    for (int second = 0; second < 5; ++second) {
      drawAnyBits();
      changeSurroundings();
      room.play(1.0F);
    }
    drawGood();
    room.play(9.0F);
    room.allFinite = true;
    room.play(1.0F);
    EXPECT_TRUE(room.allFinite);
    EXPECT_TRUE(room.rig.pipeline.probe().delayLocked);
    EXPECT_GT(room.enhancement(), 10.0F);
  }
}

}  // namespace
}  // namespace vellumic
