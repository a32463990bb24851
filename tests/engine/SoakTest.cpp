// Hours in the life of the three kinds of object: streams of every rate and microphone count one
// after another, while settings, volumes, buffers and loudspeakers change all the time.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <random>

#include "engine/ProcessCall.h"
#include "platform/FloatingPointMode.h"
#include "tests/engine/EngineRig.h"
#include "tests/support/HeapInUse.h"
#include "tests/support/PlayingSpeakers.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

// Of 30 s; VELLUMIC_SOAK_ROUNDS=120 makes an hour.
int roundsWanted() {
  if (const char* wanted = std::getenv("VELLUMIC_SOAK_ROUNDS")) return std::atoi(wanted);
#ifdef VELLUMIC_SHORT_TESTS
  return 6;
#else
  return 12;
#endif
}

// EFX, MFX and KDMFX.
constexpr std::array kinds{EffectMode::equalizer, EffectMode::array, EffectMode::arrayFourChannel};

float anyFloat(std::mt19937& random) {
  return std::bit_cast<float>(static_cast<std::uint32_t>(random()));
}

// Every slot somewhere in its sensible range. A band above half the device rate is not: its section
// rings up to infinity, call after call.
RawValues sensibleSettings(std::mt19937& random, std::uint32_t rate) {
  RawValues values = factorySettings();
  for (const Parameter& parameter : catalogue()) {
    std::uniform_real_distribution<float> inside(parameter.low, parameter.high);
    values[index(parameter.slot)] =
        parameter.kind == ParameterKind::toggle ? static_cast<float>(random() % 2) : inside(random);
  }
  for (const int side : {0, 1})
    for (int band = 0; band < equalizerBands; ++band) {
      float& frequency = values[index(bandSlot(side, band, BandField::frequency))];
      frequency = std::min(frequency, 0.45F * static_cast<float>(rate));
    }
  return values;
}

RawValues anyBits(std::mt19937& random) {
  RawValues values;
  for (float& value : values) value = anyFloat(random);
  return values;
}

class SoakedObject {
 public:
  SoakedObject(EffectMode lockMode, std::mt19937& random) : lockMode_(lockMode), random_(random) {}

  void lock(std::uint32_t rate, std::uint32_t channels) {
    rate_ = rate;
    channels_ = channels;
    speakers_.lost = false;
    rig_.lock({.sampleRate = static_cast<float>(rate),
               .inputChannels = channels,
               .outputChannels = channels});
  }
  // A second in which anything may happen around the stream.
  void disturbedSecond(const RawValues& settings) {
    // A volume of any number but 0 is as good as another.
    build(chance(5) ? 0.0F : anyFloat(random_), settings);
    speakers_.playing = !chance(4);
    speakers_.lost = speakers_.lost || chance(10);
    if (chance(6)) lock(rate_, channels_);
    play(50, chance(3) ? 4 : 0);
    if (chance(4)) play(static_cast<int>(random_() % 150), 1);
    play(50);
  }
  // Sound comes back, and 15 dB of an array's echo go.
  void recover() {
    build(1.0F, factorySettings());
    lock(rate_, channels_);
    speakers_.playing = true;
    play(900);
    allFinite = true;
    float before = 0.0F, after = 0.0F;
    const PipelineProbe& probe = rig_.core->engine.pipeline.probe();
    for (int n = 0; n < 100; ++n) {
      const std::int64_t blocks = probe.blocks;
      play(1);
      if (probe.blocks == blocks) continue;
      before += probe.microphoneEnergy;
      after += probe.residualEnergy;
    }
    EXPECT_TRUE(allFinite);
    EXPECT_TRUE(lockMode_ != EffectMode::array || before > std::pow(10.0F, 1.5F) * after)
        << before / after;
  }
  std::size_t arenaBytes() const { return rig_.core->arena.used(); }

  bool allFinite = true;  // every sample that came out
  int forbidden = 0;      // calls that the real-time thread must not make

 private:
  bool chance(unsigned oneIn) { return random_() % oneIn == 0; }
  void build(float volume, const RawValues& settings) {
    rig_.core->sets.setVolumes({.master = volume, .first = volume, .second = volume});
    rig_.core->sets.reload(
        settings, ProcessingMode::speech,
        lockMode_ == EffectMode::arrayFourChannel ? EffectMode::array : lockMode_);
  }
  // 10 ms each. One call in `silentOneIn` is marked as silence, 0 for none.
  void play(int calls, unsigned silentOneIn = 0) {
    for (int n = 0; n < calls; ++n)
      call(silentOneIn > 0 && chance(silentOneIn) ? buffer_flags::silent : buffer_flags::valid);
  }
  void call(std::uint32_t flags) {
    constexpr CallState ready{.initialized = true, .locked = true, .limits = {}};
    speakers_.hear(input_, rate_, channels_);
    output_.assign(input_.size(), 0.0F);
    const StreamBuffer input{input_.data(), rate_ / 100, flags};
    StreamBuffer output{output_.data(), 0, buffer_flags::invalid};
    const RealtimeGuard guard;
    if (admitCall(ready, 1, 1)) runCall(rig_.core->context, 1, input, 1, output);
    forbidden += guard.violations();
    for (const float sample : output_) allFinite = allFinite && std::isfinite(sample);
  }

  const EffectMode lockMode_;
  std::mt19937& random_;
  PlayingSpeakers speakers_;
  std::uint32_t rate_ = 0, channels_ = 0;
  std::vector<float> input_, output_;
  EngineRig rig_{
      factorySettings(),
      {.mode = lockMode_,
       .processingMode = ProcessingMode::speech,
       .openLoopback = {.open = [this] { return speakers_.packets(); }, .onHelperThread = false}}};
};

TEST(Soak, StaysFiniteRecoversAndKeepsItsMemory) {
  cutDenormals();
  std::mt19937 random{77};
  std::deque<SoakedObject> objects;
  for (const EffectMode kind : kinds) objects.emplace_back(kind, random);
  std::array<std::size_t, kinds.size()> arena{};
  std::size_t heap = 0, mostHeap = 0;
  const int rounds = roundsWanted();
  for (int round = 0; round < rounds; ++round) {
    const auto which = static_cast<std::size_t>(round) % kinds.size();
    SoakedObject& object = objects[which];
    const std::uint32_t rates[] = {16000, 44100, 48000}, rate = rates[random() % 3],
                        channels = 1U << random() % 4;
    SCOPED_TRACE(testing::Message()
                 << "round " << round << ", " << rate << " Hz, " << channels << " channels");
    object.lock(rate, channels);
    object.allFinite = true;
    for (int second = 0; second < 15; ++second) {
      object.disturbedSecond(sensibleSettings(random, rate));
      ASSERT_TRUE(object.allFinite) << "second " << second;
    }
    for (int second = 0; second < 5; ++second) object.disturbedSecond(anyBits(random));
    object.recover();
    EXPECT_EQ(object.forbidden, 0);
    for (int n = 0; n < 2; ++n) object.lock(48000, 4);  // the second frees what the first replaced
    if (arena[which] == 0) arena[which] = object.arenaBytes();
    EXPECT_EQ(object.arenaBytes(), arena[which]);
    if (which + 1 < kinds.size()) continue;
    // Histories keep the longest size that they had.
    const std::size_t now = heapInUse();
    if (heap == 0) heap = now;
    EXPECT_LE(now, heap + 1'500'000);
    mostHeap = std::max(mostHeap, now);
  }
  std::printf("%d rounds, heap %zu bytes, at most %zu, arena %zu\n", rounds, heap, mostHeap,
              arena[0]);
}

}  // namespace
}  // namespace vellumic
