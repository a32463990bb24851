#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "filters/BiquadEqualizer.h"
#include "platform/InstructionSet.h"

namespace vellumic {
namespace {

constexpr float streamRate = 48000.0F;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

template <class T>
T anyOf(std::mt19937& random, std::initializer_list<T> values) {
  return values.begin()[random() % values.size()];
}

// Bands drawn at random: which sides are on, types 0 to 9, sound values or, if asked, any bits.
EqualizerSettings randomSettings(std::mt19937& random, bool garbage) {
  EqualizerSettings settings;
  settings.master = anyOf(random, {1.0F, 1.0F, 1.0F, 0.5F, nan});
  std::uniform_real_distribution<float> unit(0.0F, 1.0F);
  const auto number = [&](float low, float high) {
    if (garbage && random() % 3 == 0)
      return anyOf(random, {nan, infinity, -infinity, 1e30F, -3.0F, 1e-42F, 0.0F});
    return low * std::pow(high / low, unit(random));
  };
  const unsigned share = anyOf(random, {0U, 50U, 100U, 100U});  // of the bands, in percent
  for (auto& side : settings.bands)
    for (auto& band : side) {
      const bool on = random() % 100 < share;
      band = {.enable = on ? 1.0F : anyOf(random, {0.0F, 0.5F, 2.0F, nan}),
              .type = static_cast<int>(random() % 10),
              .frequency = number(30.0F, 20000.0F),
              .gain = random() % 4 == 0 ? 1.0F : number(0.2F, 5.0F),
              .q = number(0.3F, 10.0F)};
    }
  return settings;
}

// The equaliser section by section, as the formula says.
struct PlainEqualizer {
  bool active = false;
  EqualizerBands designs{};
  std::vector<EqualizerBands> pairs{1};

  template <class Action>
  void eachBand(Action action) {
    for (EqualizerBands& pair : pairs)
      for (std::size_t band = 0; band < equalizerBands; ++band)
        for (std::size_t side = 0; side < equalizerSides; ++side)
          action(pair[side][band], designs[side][band]);
  }
  void apply(const EqualizerSettings& settings) {
    active = settings.master == 1.0F;
    for (std::size_t band = 0; active && band < equalizerBands; ++band)
      for (std::size_t side = 0; side < equalizerSides; ++side) {
        const EqualizerBandSettings& wanted = settings.bands[side][band];
        auto& [section, enabled] = designs[side][band];
        section.set(wanted.type, wanted.frequency, wanted.gain, wanted.q, streamRate);
        enabled = wanted.enable == 1.0F && (wanted.type != 1 || wanted.gain != 1.0F);
      }
    eachBand([](EqualizerBand& band, EqualizerBand next) {
      next.section.z1 = band.section.z1;
      next.section.z2 = band.section.z2;
      band = next;
    });
  }
  void process(float* frame) {
    for (EqualizerBands& pair : pairs)
      for (std::size_t band = 0; active && band < equalizerBands; ++band)
        for (std::size_t side = 0; side < equalizerSides; ++side)
          if (auto& [section, enabled] = pair[side][band]; enabled)
            section.process(frame[2 * (&pair - pairs.data()) + static_cast<int>(side)]);
  }
  void clear(bool brokenOnly) {
    eachBand([&](EqualizerBand& band, const EqualizerBand&) {
      float &z1 = band.section.z1, &z2 = band.section.z2;
      if (!brokenOnly || (active && !(std::isfinite(z1) && std::isfinite(z2)))) z1 = z2 = 0.0F;
    });
  }
};

bool same(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

bool same(const BiquadEqualizer& equalizer, const PlainEqualizer& plain) {
  bool alike = equalizer.active() == plain.active && equalizer.pairs().size() == plain.pairs.size();
  for (std::size_t n = 0; alike && n < plain.pairs.size(); ++n)
    for (int side = 0; side < equalizerSides; ++side)
      for (int band = 0; band < equalizerBands; ++band) {
        const auto& [expected, enabled] =
            plain.pairs[n][static_cast<std::size_t>(side)][static_cast<std::size_t>(band)];
        const BiquadSection section = equalizer.pairs()[n].section(side, band);
        alike = alike && equalizer.pairs()[n].enabled(side, band) == enabled;
        for (const auto member :
             {&BiquadSection::z1, &BiquadSection::z2, &BiquadSection::a1, &BiquadSection::a2,
              &BiquadSection::b0, &BiquadSection::b1, &BiquadSection::b2, &BiquadSection::gain})
          alike = alike && same(section.*member, expected.*member);
      }
  return alike;
}

class BiquadEqualizerSets : public testing::TestWithParam<InstructionSet> {};

// Channel counts, designs and blocks follow one another, so that memories are kept, handed over,
// frozen and started over.
TEST_P(BiquadEqualizerSets, EqualsThePlainCascadeToTheBitByFrameAndByBlock) {
  const ScopedInstructionSet set(GetParam());
  std::mt19937 random(1);
  std::uniform_real_distribution<float> level(-1.0F, 1.0F);
  for (int round = 0; round < 100; ++round) {
    PlainEqualizer plain;
    BiquadEqualizer byFrame, byBlock;
    EqualizerRecord record;
    for (const std::size_t frames : {1U, 20U, 23U, 24U, 30U, 97U}) {
      SCOPED_TRACE(testing::Message() << "round " << round << ", frames " << frames);
      if (random() % 3 == 0) {
        const auto channels = anyOf(random, {0U, 1U, 2U, 3U, 8U, 12U, 4000000000U});
        for (BiquadEqualizer* equalizer : {&byFrame, &byBlock})
          equalizer->setChannelCount(channels);
        plain.pairs.resize((std::min(channels, 12U) + 1) / 2);
        ASSERT_TRUE(same(byFrame, plain));
      }
      for (auto builds = random() % 3; builds > 0; --builds) {
        const EqualizerSettings settings = randomSettings(random, round % 3 == 2);
        record = EqualizerRecord::design(settings, streamRate, record);
        byFrame.applyParameters(settings, streamRate);
        if (builds == 1) byBlock.adopt(record);
        plain.apply(settings);
      }
      const std::size_t stride = std::max<std::size_t>(2 * plain.pairs.size() + random() % 2, 2);
      std::vector<float> block(stride * frames);
      for (float& sample : block) sample = level(random);
      std::vector<float> reference = block, single = block;
      byBlock.processFrames(block.data(), stride, frames);
      for (std::size_t n = 0; n < frames; ++n) {
        plain.process(&reference[n * stride]);
        byFrame.process(&single[n * stride]);
      }
      for (std::size_t i = 0; i < block.size(); ++i) {
        ASSERT_TRUE(same(single[i], reference[i])) << "by frame, " << i;
        ASSERT_TRUE(same(block[i], reference[i])) << "by block, " << i;
      }
      const auto end = random() % 8;
      for (BiquadEqualizer* equalizer : {&byFrame, &byBlock}) {
        if (end == 0) equalizer->reset();
        if (end < 4) equalizer->restartBroken();
      }
      if (end < 4) plain.clear(end != 0);
      ASSERT_TRUE(same(byFrame, plain) && same(byBlock, plain));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EverySet, BiquadEqualizerSets,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2),
                         [](const auto& set) { return nameOf(set.param); });

TEST(BiquadChannelPair, TakesTheTwentyBandsAndNoOthers) {
  BiquadChannelPair pair;
  for (const auto& [channel, band] : {std::pair{2, 0}, {-1, 0}, {0, 10}, {1, -1}})
    pair.setBand(channel, band, 1, 0, 1000, 0.5F, 1, streamRate);
  pair.setBand(0, 0, 1, 0, 1000, 0.5F, 1, streamRate);
  pair.setBand(1, 9, 1, 0, 1000, 0.25F, 1, streamRate);
  float first = 1, second = 1;
  pair.process(first, second);
  EXPECT_EQ(first, 0.5F);
  EXPECT_EQ(second, 0.25F);
}

}  // namespace
}  // namespace vellumic
