// Any 1365 floats through build and process: nothing may crash, hang or touch foreign memory, and
// good settings bring the sound back.
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>

#include "platform/FloatingPointMode.h"
#include "tests/engine/EngineRig.h"

namespace vellumic {
namespace {

#ifdef VELLUMIC_SHORT_TESTS
constexpr int settingsPerCase = 6;
#else
constexpr int settingsPerCase = 40;
#endif

class Drawer {
 public:
  explicit Drawer(unsigned seed) : random_(seed) {}

  // `wild` of all slots, 0 to 1, get a value of any kind; the others keep their factory value.
  RawValues settings(double wild) {
    RawValues values = factorySettings();
    for (float& value : values)
      if (chance(wild)) value = anything();
    return values;
  }
  bool chance(double probability) {
    return std::uniform_real_distribution<>(0.0, 1.0)(random_) < probability;
  }

 private:
  float anything() {
    using Limits = std::numeric_limits<float>;
    constexpr std::array special{Limits::quiet_NaN(),
                                 Limits::infinity(),
                                 -Limits::infinity(),
                                 1e30F,
                                 -1e30F,
                                 Limits::denorm_min(),
                                 -1e-40F,
                                 Limits::max(),
                                 0.0F,
                                 -0.0F,
                                 1.0F,
                                 -1.0F,
                                 2147483648.0F,
                                 128.0F,
                                 1000.0F};
    const auto pick = std::uniform_int_distribution<std::size_t>(0, special.size() + 4)(random_);
    if (pick < special.size()) return special[pick];
    return std::uniform_real_distribution<float>(-100.0F, 100.0F)(random_);
  }
  std::mt19937 random_;
};

struct RandomCase {
  const char* name;
  EffectMode mode;
  ProcessingMode processingMode;
  StreamFormat format;
};
class RandomParameters : public testing::TestWithParam<RandomCase> {};

TEST_P(RandomParameters, BuildAndProcess) {
  cutDenormals();
  const RandomCase& test = GetParam();
  const RigSetup setup{test.mode, test.processingMode, test.format};
  Drawer drawer(20);
  EngineRig rig(drawer.settings(1.0), setup);
  std::mt19937 random(21);
  std::uniform_real_distribution<float> sample(-0.5F, 0.5F);
  for (int n = 0; n < settingsPerCase; ++n) {
    rig.reload(drawer.settings(n % 3 == 0 ? 1.0 : 0.1));
    if (n % 4 == 3) rig.lock(test.format);
    for (int call = 0; call < 12; ++call) {
      const std::size_t frames = std::uniform_int_distribution<std::size_t>(0, 1500)(random);
      std::vector<float> input(frames * test.format.inputChannels);
      for (float& value : input) value = sample(random);
      if (drawer.chance(0.1) && !input.empty())
        input[input.size() / 2] = std::numeric_limits<float>::quiet_NaN();
      rig.call(input);
    }
  }
  // Good settings, a fresh stream: sound, and every number finite after a second.
  rig.reload(factorySettings());
  rig.lock(test.format);
  const auto rate = static_cast<std::size_t>(test.format.sampleRate);
  std::vector<float> output;
  for (std::size_t tenth = 0; tenth < 10; ++tenth)
    output = rig.call(sine(rate / 10, test.format.inputChannels, 0.1, tenth * rate / 10));
  EXPECT_TRUE(std::ranges::all_of(output, [](float value) { return std::isfinite(value); }));
}

constexpr StreamFormat wide{.sampleRate = 48000.0F, .inputChannels = 8, .outputChannels = 8};
constexpr StreamFormat stereo16{.sampleRate = 16000.0F};
constexpr StreamFormat four{.sampleRate = 44100.0F, .inputChannels = 4, .outputChannels = 4};
constexpr StreamFormat mono{.sampleRate = 48000.0F, .inputChannels = 1, .outputChannels = 2};
constexpr StreamFormat slow{.sampleRate = 8000.0F};
constexpr auto standard = ProcessingMode::standard;
constexpr auto speech = ProcessingMode::speech;
INSTANTIATE_TEST_SUITE_P(
    Modes, RandomParameters,
    testing::Values(RandomCase{"equalizerWide", EffectMode::equalizer, standard, wide},
                    RandomCase{"equalizerMono", EffectMode::equalizer, standard, mono},
                    RandomCase{"arraySpeech", EffectMode::array, speech, stereo16},
                    RandomCase{"arrayFour", EffectMode::array, standard, four},
                    RandomCase{"arrayMono", EffectMode::array, speech, mono},
                    RandomCase{"arraySlow", EffectMode::array, speech, slow},
                    RandomCase{"arrayMedia", EffectMode::array, ProcessingMode::media, wide},
                    RandomCase{"keywordFour", EffectMode::arrayFourChannel, speech, four},
                    RandomCase{"keywordStereo", EffectMode::arrayFourChannel, standard, stereo16},
                    RandomCase{"otherMode", static_cast<EffectMode>(11), standard, stereo16}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace vellumic
