// What the designs promise as audio facts: gains in dB at stated frequencies, widths, symmetries.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "filters/BiquadSectionPair.h"

namespace vellumic {
namespace {

constexpr float sampleRate = 48000.0F;
constexpr double pi = std::numbers::pi;

double decibels(double amplitude) { return 20.0 * std::log10(std::max(amplitude, 1e-10)); }

BiquadSection designed(BiquadType type, float frequency, float q, float gain) {
  BiquadSection section;
  section.set(static_cast<int>(type), frequency, gain, q, sampleRate);
  return section;
}

double amplitude(const BiquadSection& s, double frequency) {
  const auto z = std::polar(1.0, -2.0 * pi * frequency / sampleRate);
  const std::complex<double> above = double{s.b0} + z * (double{s.b1} + z * double{s.b2});
  return std::abs(above / (1.0 + z * (double{s.a1} + z * double{s.a2})));
}

// Width in radians per sample of the region around `centre` where |amplitude - 1| passes that of
// `level`.
double width(const BiquadSection& section, double centre, double level) {
  const auto edge = [&](double far) {
    double near = centre;
    for (int step = 0; step < 60; ++step) {
      const double middle = 0.5 * (near + far);
      const bool inside = std::abs(amplitude(section, middle) - 1.0) > std::abs(level - 1.0);
      (inside ? near : far) = middle;
    }
    return near;
  };
  return (edge(sampleRate / 2.0 - 1.0) - edge(1.0)) * 2.0 * pi / sampleRate;
}

// At the corner the shelf's square gain is ((1 - g)^2 + g / Q^2) Q^2, its inverse for a cut.
double shelfAtCorner(double g, double q) { return std::sqrt((1 - g) * (1 - g) * q * q + g); }

struct Fact {
  BiquadType type;
  float frequency, q, gain;
  double at, expected, tolerance;  // Hz, dB, dB
};

class DesignFacts : public testing::TestWithParam<Fact> {};

TEST_P(DesignFacts, GainIsAsStated) {
  const Fact& fact = GetParam();
  const BiquadSection section = designed(fact.type, fact.frequency, fact.q, fact.gain);
  EXPECT_NEAR(decibels(amplitude(section, fact.at)), fact.expected, fact.tolerance)
      << "type " << static_cast<int>(fact.type) << " at " << fact.at << " Hz";
}

using enum BiquadType;
constexpr double nyquist = 24000.0;
INSTANTIATE_TEST_SUITE_P(Flat, DesignFacts,
                         testing::Values(Fact{Gain, 100, 5, 0.5F, 0, -6.0206, 1e-4},
                                         Fact{Gain, 100, 5, 0.5F, 9000, -6.0206, 1e-4},
                                         Fact{Peak, 1000, 2, 1.0F, 1000, 0, 1e-9}));
INSTANTIATE_TEST_SUITE_P(Passes, DesignFacts,  // the Q given plays no part in the plain passes
                         testing::Values(Fact{LowPass, 1000, 9, 1, 0, 0, 1e-3},
                                         Fact{LowPass, 1000, 9, 1, 1000, -3.0103, 1e-3},
                                         Fact{LowPass, 1000, 9, 1, 4000, -24.1, 0.5},
                                         Fact{LowPass, 1000, 9, 1, 2000, -12.3, 0.2},
                                         Fact{HighPass, 4000, 9, 1, nyquist, 0, 1e-3},
                                         Fact{HighPass, 4000, 9, 1, 4000, -3.0103, 1e-3},
                                         Fact{HighPass, 4000, 9, 1, 500, -36.1, 0.5},
                                         Fact{HighPassQ, 4000, 2, 1, 4000, 6.0206, 1e-3},
                                         Fact{HighPassQ, 4000, 0.5F, 1, nyquist, 0, 1e-3},
                                         Fact{BandPass, 2000, 3, 1, 2000, 0, 1e-3},
                                         Fact{BandPass, 2000, 3, 1, 0, -200, 1e-3},
                                         Fact{Notch, 2000, 3, 1, 2000, -200, 100},
                                         Fact{Notch, 2000, 3, 1, 0, 0, 1e-3},
                                         Fact{Notch, 2000, 3, 1, nyquist, 0, 1e-3}));
INSTANTIATE_TEST_SUITE_P(
    PeaksAndShelves, DesignFacts,
    testing::Values(Fact{Peak, 3000, 1, 4, 3000, 12.0412, 1e-3}, Fact{Peak, 3000, 1, 4, 0, 0, 1e-3},
                    Fact{Peak, 3000, 1, 4, nyquist, 0, 1e-3},
                    Fact{Peak, 3000, 1, 0.25F, 3000, -12.0412, 1e-3},
                    Fact{LowShelf, 500, 0.9F, 4, 0, 12.0412, 1e-3},
                    Fact{LowShelf, 500, 0.9F, 4, 500, decibels(shelfAtCorner(4, 0.9)), 1e-2},
                    Fact{LowShelf, 500, 0.9F, 4, nyquist, 0, 1e-3},
                    Fact{LowShelf, 500, 0.9F, 0.25F, 0, -12.0412, 1e-3},
                    Fact{LowShelf, 500, 0.9F, 0.25F, 500, -decibels(shelfAtCorner(4, 0.9)), 1e-2},
                    Fact{LowShelf, 500, 0.9F, 1.2F, 0, 1.5836, 1e-3},
                    Fact{HighShelf, 5000, 0.9F, 1.2F, nyquist, 1.5836, 1e-3},
                    Fact{LowShelf, 500, 0.9F, 0.9F, 0, -0.9151, 1e-3},
                    Fact{HighShelf, 5000, 0.9F, 0.9F, nyquist, -0.9151, 1e-3},
                    Fact{HighShelf, 5000, 0.9F, 4, nyquist, 12.0412, 1e-3},
                    Fact{HighShelf, 5000, 0.9F, 4, 5000, decibels(shelfAtCorner(4, 0.9)), 1e-2},
                    Fact{HighShelf, 5000, 0.9F, 4, 0, 0, 1e-3},
                    Fact{HighShelf, 5000, 0.9F, 0.25F, nyquist, -12.0412, 1e-3},
                    Fact{HighShelf, 5000, 0.9F, 0.25F, 5000, -decibels(shelfAtCorner(4, 0.9)),
                         1e-2}));

TEST(BiquadDesign, ACutMirrorsTheBoostOfTheInverseGain) {
  for (const BiquadType type : {Peak, LowShelf, HighShelf}) {
    const BiquadSection boost = designed(type, 2500, 1.3F, 2),
                        cut = designed(type, 2500, 1.3F, 0.5F);
    for (const double frequency : {100.0, 1500.0, 2500.0, 4000.0, 20000.0})
      EXPECT_NEAR(amplitude(boost, frequency) * amplitude(cut, frequency), 1.0, 1e-4);
  }
}

TEST(BiquadDesign, OnlyTheNotchHasAPrewarpedWidth) {
  constexpr float centre = 12000, q = 0.7F, gain = 3;
  const double w0 = 2 * pi * centre / sampleRate;
  EXPECT_NEAR(width(designed(Peak, centre, q, gain), centre, std::sqrt((1 + gain * gain) / 2)),
              2 * std::atan(0.5 * w0 / q), 1e-3);
  EXPECT_NEAR(width(designed(Notch, 3000, q, 1), 3000, std::sqrt(0.5)), w0 / 4 / q, 1e-3);
}

TEST(BiquadDesign, ShelfCutsWriteTheInverseGainBackUntilTheNextSet) {
  BiquadSection section = designed(HighShelf, 4000, 0.7F, 0.25F);
  const float b0 = section.b0;
  EXPECT_EQ(section.gain, 4.0F);
  section.set(static_cast<int>(HighShelf), 4000, 0.25F, 0.7F, sampleRate);
  EXPECT_EQ(section.b0, b0);
  EXPECT_EQ(section.gain, 4.0F);
}

TEST(BiquadDesign, WithoutADesignTheCoefficientsStay) {
  const BiquadSection before = designed(LowShelf, 500, 0.7F, 2);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const auto& [type, gain] :
       {std::pair{8, 3.0F}, {10, 3.0F}, {-1, 3.0F}, {4, nan}, {5, nan}}) {
    BiquadSection section = before;
    section.set(type, 3000, gain, 2, sampleRate);
    EXPECT_EQ(section.b0, before.b0) << type;
    EXPECT_EQ(section.a2, before.a2) << type;
  }
}

TEST(BiquadDesign, OfUnityGainIsFlat) {
  for (const BiquadType type : {Peak, LowShelf, HighShelf}) {
    const auto flat = designBiquad(static_cast<int>(type), 3000, 1, 1, sampleRate);
    ASSERT_TRUE(flat);
    EXPECT_EQ(flat->b0, 1.0F);
    EXPECT_EQ(flat->a1, 0.0F);
  }
}

TEST(BiquadSectionPair, RunsTwoIndependentMemoriesOfOneDesign) {
  BiquadSectionPair pair;
  pair.set(HighPass, 150, 1, 0.7F, 16000);
  BiquadSection alone = pair.first;
  float first = 1, second = 0.5F, expected = 0.5F;
  pair.process(first, second);
  alone.process(expected);
  EXPECT_EQ(second, expected);
  EXPECT_EQ(pair.first.z1, 1.0F);
  EXPECT_EQ(pair.second.z1, 0.5F);
}

}  // namespace
}  // namespace vellumic
