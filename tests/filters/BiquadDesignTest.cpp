#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "filters/BiquadSection.h"

namespace vellumic {
namespace {

using enum BiquadType;
using Complex = std::complex<double>;

constexpr float sampleRate = 48000.0F;
constexpr double pi = std::numbers::pi;

struct Design {
  BiquadType type;
  float frequency, q, gain;
};

BiquadSection designed(const Design& d) {
  BiquadSection section;
  section.set(static_cast<int>(d.type), d.frequency, d.gain, d.q, sampleRate);
  return section;
}

Complex response(const BiquadSection& s, double frequency) {
  const Complex z = std::polar(1.0, -2.0 * pi * frequency / sampleRate);
  return (double{s.b0} + z * (double{s.b1} + z * double{s.b2})) /
         (1.0 + z * (double{s.a1} + z * double{s.a2}));
}

// The analogue filter behind each type, at the frequency that the bilinear transform gives it.
Complex prototype(const Design& d, double frequency) {
  const double w0 = 2.0 * pi * d.frequency / sampleRate, g = d.gain, q = d.q;
  const Complex s(0.0, std::tan(pi * frequency / sampleRate) / std::tan(w0 / 2.0));
  const auto lowered = [&](double damping) { return s * s + damping * s + 1.0; };
  // A boost of 1 / g, its inverse for a cut.
  const auto shelf = [&](bool high) {
    const double h = std::max(g, 1.0 / g), r = std::sqrt(h) / q;
    const Complex boost = ((high ? h : 1.0) * s * s + r * s + (high ? 1.0 : h)) / lowered(1.0 / q);
    return g < 1.0 ? 1.0 / boost : boost;
  };
  // The peak's width is not prewarped, and widens by 1 / g in a cut; the notch's is prewarped.
  const double wide = w0 / (q * std::min(g, 1.0) * std::sin(w0));
  const double narrow = 2.0 * std::tan(w0 / 2.0 / q) / std::sin(w0);
  switch (d.type) {
    case Gain:
      return g;
    case Peak:
      return lowered(g * wide) / lowered(wide);
    case LowPass:
      return 1.0 / lowered(std::numbers::sqrt2);
    case HighPass:
      return s * s / lowered(std::numbers::sqrt2);
    case LowShelf:
      return shelf(false);
    case HighShelf:
      return shelf(true);
    case Notch:
      return lowered(0.0) / lowered(narrow);
    case BandPass:
      return s / q / lowered(1.0 / q);
    case HighPassQ:
      return s * s / lowered(1.0 / q);
  }
  return 0.0;
}

TEST(BiquadDesign, RespondsAsItsAnaloguePrototype) {
  for (const auto type :
       {Gain, Peak, LowPass, HighPass, LowShelf, HighShelf, Notch, BandPass, HighPassQ})
    for (const float frequency : {500.0F, 4000.0F, 12000.0F})
      for (const float q : {0.7F, 1.3F, 5.0F})
        for (const float gain : {0.25F, 0.9F, 1.0F, 1.5F, 4.0F}) {
          const Design design{type, frequency, q, gain};
          const BiquadSection section = designed(design);
          for (const double at : {0.0, 300.0, 500.0, 2000.0, 4000.0, 12000.0, 23000.0})
            ASSERT_LT(std::abs(response(section, at) - prototype(design, at)), 5e-4)
                << static_cast<int>(type) << ' ' << frequency << ' ' << q << ' ' << gain << ' '
                << at;
        }
}

TEST(BiquadDesign, LeavesCoefficientsAloneWithoutOneAndWritesAShelfCutBackUntilTheNextSet) {
  const BiquadSection before = designed({LowShelf, 500, 0.7F, 2});
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const auto& [type, gain] :
       {std::pair{8, 3.0F}, {10, 3.0F}, {-1, 3.0F}, {4, nan}, {5, nan}}) {
    BiquadSection section = before;
    section.set(type, 3000, gain, 2, sampleRate);
    EXPECT_EQ(section.b0, before.b0) << type;
  }
  BiquadSection untouched;
  untouched.set(8, 3000, 0.5F, 2, sampleRate);
  EXPECT_EQ(response(untouched, 1000.0), 1.0);
  BiquadSection cut = designed({HighShelf, 4000, 0.7F, 0.25F});
  const float b0 = cut.b0;
  EXPECT_EQ(cut.gain, 4.0F);
  cut.set(static_cast<int>(HighShelf), 4000, 0.25F, 0.7F, sampleRate);
  EXPECT_EQ(cut.b0, b0);
  EXPECT_EQ(designed({Peak, 4000, 0.7F, 0.25F}).gain, 0.25F);
}

}  // namespace
}  // namespace vellumic
