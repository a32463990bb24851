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

constexpr float sampleRate = 48000.0F;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

EqualizerSettings oneBand(const EqualizerBandSettings& band, int side = 0) {
  EqualizerSettings settings;
  settings.master = 1.0F;
  settings.bands[static_cast<std::size_t>(side)][0] = band;
  return settings;
}

std::vector<float> noise(std::size_t count) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> level(-1.0F, 1.0F);
  std::vector<float> samples(count);
  for (float& sample : samples) sample = level(random);
  return samples;
}

// Bands drawn at random: which sides are on, types 0 to 9, sound values or, if asked, any bits.
EqualizerSettings randomSettings(std::mt19937& random, bool garbage) {
  EqualizerSettings settings;
  settings.master = 1.0F;
  std::uniform_real_distribution<float> unit(0.0F, 1.0F);
  const auto number = [&](float low, float high) {
    const float odd[] = {nan, infinity, -infinity, 1e30F, -3.0F, 1e-42F, 0.0F};
    if (garbage && random() % 3 == 0) return odd[random() % std::size(odd)];
    return low * std::pow(high / low, unit(random));
  };
  const bool mostlyOn = random() % 2 == 0;
  for (auto& side : settings.bands)
    for (auto& band : side)
      band = {.enable = mostlyOn || random() % 2 == 0 ? 1.0F : 0.0F,
              .type = static_cast<int>(random() % 10),
              .frequency = number(30.0F, 20000.0F),
              .gain = number(0.2F, 5.0F),
              .q = number(0.3F, 10.0F)};
  return settings;
}

// The sections one by one, as the formula says.
struct PlainCascade {
  EqualizerBands bands{};
  void adopt(const EqualizerBands& designed) {
    for (std::size_t side = 0; side < bands.size(); ++side)
      for (std::size_t band = 0; band < equalizerBands; ++band) {
        const BiquadSection before = bands[side][band].section;
        bands[side][band] = designed[side][band];
        bands[side][band].section.z1 = before.z1;
        bands[side][band].section.z2 = before.z2;
      }
  }
  void process(float* frame) {
    for (std::size_t band = 0; band < equalizerBands; ++band)
      for (std::size_t side = 0; side < 2; ++side)
        if (bands[side][band].enabled) bands[side][band].section.process(frame[side]);
  }
};

bool same(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

class BiquadEqualizerSets : public testing::TestWithParam<InstructionSet> {};

TEST_P(BiquadEqualizerSets, EqualsThePlainCascadeToTheBitByFrameAndByBlock) {
  const ScopedInstructionSet set(GetParam());
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    const bool garbage = round % 3 == 2;
    PlainCascade plain;
    BiquadEqualizer byFrame, byBlock;
    // Blocks of several lengths and designs follow one another, so that memories are handed over
    // and frozen.
    for (const std::size_t frames : {1U, 20U, 23U, 24U, 30U, 97U}) {
      const EqualizerRecord record =
          EqualizerRecord::design(randomSettings(random, garbage), sampleRate, {});
      plain.adopt(record.bands);
      byFrame.adopt(record);
      byBlock.adopt(record);
      const std::size_t stride = round % 2 == 0 ? 2 : 12;
      std::vector<float> block = noise(stride * frames), reference = block, single = block;
      byBlock.processFrames(block.data(), stride, frames);
      for (std::size_t n = 0; n < frames; ++n) {
        plain.process(&reference[n * stride]);
        byFrame.process(&single[n * stride]);
      }
      for (std::size_t i = 0; i < block.size(); ++i) {
        ASSERT_TRUE(same(single[i], reference[i])) << "by frame, round " << round << ", " << i;
        ASSERT_TRUE(same(block[i], reference[i])) << "by block, round " << round << ", " << i;
      }
    }
    // Memories too, frozen ones included.
    for (int side = 0; side < equalizerSides; ++side)
      for (int band = 0; band < equalizerBands; ++band)
        for (const BiquadEqualizer* equalizer : {&byFrame, &byBlock}) {
          const BiquadSection section = equalizer->pairs()[0].section(side, band);
          const BiquadSection& expected =
              plain.bands[static_cast<std::size_t>(side)][static_cast<std::size_t>(band)].section;
          ASSERT_TRUE(same(section.z1, expected.z1) && same(section.z2, expected.z2)) << round;
        }
  }
}

INSTANTIATE_TEST_SUITE_P(EverySet, BiquadEqualizerSets,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2),
                         [](const auto& set) { return nameOf(set.param); });

struct Flag {
  EqualizerBandSettings band;
  bool enabled;
  float outputOfOne;
};
TEST(BiquadEqualizer, OnlyAnEnableOfOneRunsABandAndAUnityPeakIsBypassed) {
  const Flag flags[] = {{{.enable = 1, .type = 0, .gain = 0.5F}, true, 0.5F},
                        {{.enable = 0.5F, .type = 0, .gain = 0.5F}, false, 1.0F},
                        {{.enable = nan, .type = 0, .gain = 0.5F}, false, 1.0F},
                        {{.enable = 2, .type = 0, .gain = 0.5F}, false, 1.0F},
                        {{.enable = 1, .type = 1, .gain = 1}, false, 1.0F},
                        {{.enable = 1, .type = 4, .gain = 1}, true, 1.0F},
                        {{.enable = 1, .type = 0, .gain = 1}, true, 1.0F}};
  for (const Flag& flag : flags) {
    for (const int side : {0, 1}) {
      BiquadEqualizer equalizer;
      equalizer.applyParameters(oneBand(flag.band, side), sampleRate);
      EXPECT_EQ(equalizer.pairs()[0].enabled(side, 0), flag.enabled);
      float frame[2] = {1, 1};
      equalizer.process(frame);
      EXPECT_EQ(frame[side], flag.outputOfOne) << "type " << flag.band.type;
      EXPECT_EQ(frame[1 - side], 1.0F);
    }
  }
}

TEST(BiquadEqualizer, MasterOffPassesTheFrameAndLeavesBandsAndFlags) {
  BiquadEqualizer equalizer;
  equalizer.applyParameters(oneBand({.enable = 1, .type = 0, .gain = 0.5F}), sampleRate);
  EqualizerSettings off = oneBand({.enable = 0, .type = 3, .gain = 0.1F});
  off.master = 0.5F;
  equalizer.applyParameters(off, sampleRate);
  float frame[2] = {1, 1};
  equalizer.process(frame);
  EXPECT_FALSE(equalizer.active());
  EXPECT_EQ(frame[0], 1.0F);
  EXPECT_TRUE(equalizer.pairs()[0].enabled(0, 0));
  EXPECT_EQ(equalizer.pairs()[0].section(0, 0).b0, 0.5F);

  EqualizerSettings allOff;
  allOff.master = 1.0F;
  equalizer.applyParameters(allOff, sampleRate);
  equalizer.process(frame);
  EXPECT_TRUE(equalizer.active());
  EXPECT_EQ(frame[0], 1.0F);
}

TEST(BiquadEqualizer, NewDesignsAndFrozenBandsKeepTheirMemoriesAndResetClearsThem) {
  BiquadEqualizer equalizer;
  EqualizerBandSettings band{.enable = 1, .type = 2, .frequency = 300};
  equalizer.applyParameters(oneBand(band), sampleRate);
  float frame[2] = {1, 1};
  for (int n = 0; n < 5; ++n) equalizer.process(frame);
  const BiquadSection before = equalizer.pairs()[0].section(0, 0);
  ASSERT_NE(before.z2, 0.0F);

  band.enable = 0;
  band.frequency = 3000;
  equalizer.applyParameters(oneBand(band), sampleRate);
  equalizer.process(frame);
  const BiquadSection after = equalizer.pairs()[0].section(0, 0);
  EXPECT_NE(after.a1, before.a1);
  EXPECT_EQ(after.z1, before.z1);
  EXPECT_EQ(after.z2, before.z2);

  equalizer.reset();
  EXPECT_EQ(equalizer.pairs()[0].section(0, 0).z1, 0.0F);
  EXPECT_EQ(equalizer.pairs()[0].section(0, 0).a1, after.a1);
}

TEST(BiquadEqualizer, PairsFollowTheChannelCount) {
  BiquadEqualizer equalizer;
  EXPECT_EQ(equalizer.pairs().size(), 1U);
  const std::pair<unsigned, std::size_t> counts[] = {{1, 1}, {2, 1},  {3, 2},           {4, 2},
                                                     {8, 4}, {12, 6}, {4000000000U, 6}, {0, 0}};
  for (const auto& [channels, pairs] : counts) {
    equalizer.setChannelCount(channels);
    EXPECT_EQ(equalizer.pairs().size(), pairs) << channels;
  }
}

TEST(BiquadEqualizer, AGrownPairKeepsTheOldMemoriesAndTakesTheDesignsThatFollow) {
  BiquadEqualizer equalizer;
  const EqualizerSettings settings =
      oneBand({.enable = 1, .type = 5, .frequency = 4000, .gain = 0.25F}, 1);
  equalizer.applyParameters(settings, sampleRate);
  float frame[4] = {0, 1, 0, 1};
  equalizer.process(frame);
  equalizer.setChannelCount(3);
  EXPECT_FALSE(equalizer.pairs()[1].enabled(1, 0));
  equalizer.applyParameters(settings, sampleRate);
  EXPECT_EQ(equalizer.pairs()[0].section(1, 0).z1, 1.0F);
  EXPECT_EQ(equalizer.pairs()[1].section(1, 0).gain, 4.0F);
  // The slot beside the third channel is filtered as well.
  equalizer.process(frame);
  EXPECT_EQ(frame[3], equalizer.pairs()[1].section(1, 0).b0);
}

TEST(EqualizerRecord, DesignsBuildOnOneAnotherBeforeTheyAreAdopted) {
  const EqualizerBandSettings shelf{.enable = 1, .type = 4, .frequency = 500, .gain = 2};
  EqualizerBandSettings broken = shelf;
  broken.gain = nan;
  const EqualizerRecord first = EqualizerRecord::design(oneBand(shelf), sampleRate, {});
  const EqualizerRecord second = EqualizerRecord::design(oneBand(broken), sampleRate, first);
  EXPECT_EQ(second.bands[0][0].section.b0, first.bands[0][0].section.b0);
  EqualizerSettings off;
  const EqualizerRecord third = EqualizerRecord::design(off, sampleRate, second);
  EXPECT_FALSE(third.active);
  EXPECT_TRUE(third.bands[0][0].enabled);
}

TEST(BiquadChannelPair, TakesTheTwentyBandsAndNoOthers) {
  BiquadChannelPair pair;
  for (const auto& [channel, band] : {std::pair{2, 0}, {-1, 0}, {0, 10}, {1, -1}})
    pair.setBand(channel, band, 1, 0, 1000, 0.5F, 1, sampleRate);
  float first = 1, second = 1;
  pair.process(first, second);
  EXPECT_EQ(first, 1.0F);
  EXPECT_EQ(second, 1.0F);
  pair.setBand(0, 0, 1, 0, 1000, 0.5F, 1, sampleRate);
  pair.setBand(1, 9, 1, 0, 1000, 0.25F, 1, sampleRate);
  pair.process(first, second);
  EXPECT_EQ(first, 0.5F);
  EXPECT_EQ(second, 0.25F);
}

}  // namespace
}  // namespace vellumic
