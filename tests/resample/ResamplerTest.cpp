// What the converter does to sound, for one table of rate pairs: response, spurious signals,
// alignment, count and drift, and that it makes no difference how the input is cut into calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <ostream>
#include <vector>

#include "platform/InstructionSet.h"
#include "resample/CDSPResampler24.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic::resample {
namespace {

constexpr double transitionBand = 10.0;
#ifdef VELLUMIC_SHORT_TESTS
constexpr long long longRun = 100'000;
#else
constexpr long long longRun = 1'000'000;
#endif

struct Pair {
  double source;
  double destination;
  double slower() const { return std::min(source, destination); }
  double corner() const { return 0.5 * slower(); }
  bool pureChain() const {
    const double octaves = std::log2(destination / source);
    return octaves == std::round(octaves);
  }
};
void PrintTo(const Pair& pair, std::ostream* out) {
  *out << pair.source << "->" << pair.destination;
}

// Phase of a tone in turns, kept small for the sine's sake.
double turns(double frequency, double rate, long long sample) {
  return std::fmod(frequency * static_cast<double>(sample), rate) / rate;
}

struct Output {
  std::vector<double> samples;
  std::vector<int> counts;  // of each call
};

Output convert(CDSPResampler24& converter, const std::vector<double>& input, int callSize) {
  Output output;
  for (std::size_t at = 0; at < input.size(); at += static_cast<std::size_t>(callSize)) {
    const int count = std::min(callSize, static_cast<int>(input.size() - at));
    const double* result = nullptr;
    const int produced = converter.process(input.data() + at, count, result);
    output.samples.insert(output.samples.end(), result, result + produced);
    output.counts.push_back(produced);
  }
  return output;
}

std::vector<double> tone(double frequency, double rate, int count) {
  std::vector<double> samples(static_cast<std::size_t>(count));
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const double turn = turns(frequency, rate, static_cast<long long>(n));
    samples[n] = std::sin(2.0 * std::numbers::pi * turn);
  }
  return samples;
}

std::vector<double> noise(int count) {
  std::vector<double> samples(static_cast<std::size_t>(count));
  unsigned state = 1;
  for (double& sample : samples) {
    state = state * 1664525U + 1013904223U;
    sample = static_cast<double>(state >> 8U) / 16777216.0 - 0.5;
  }
  return samples;
}

double decibel(double amplitude) { return 20.0 * std::log10(std::max(amplitude, 1e-15)); }

// The least-squares sine of known frequency in samples whose first one has the index `first`.
struct Fit {
  std::complex<double> gain;  // against sin(2 pi f t), t from index 0
  double rest;                // highest sample without it
};
Fit fit(const std::vector<double>& samples, long long first, double frequency, double rate) {
  double cc = 0, ss = 0, cs = 0, xc = 0, xs = 0;
  std::vector<std::complex<double>> unit(samples.size());
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const double turn = turns(frequency, rate, first + static_cast<long long>(n));
    unit[n] = std::polar(1.0, 2.0 * std::numbers::pi * turn);
    const double c = unit[n].real(), s = unit[n].imag();
    cc += c * c, ss += s * s, cs += c * s, xc += samples[n] * c, xs += samples[n] * s;
  }
  const double determinant = cc * ss - cs * cs;
  const double cosine = (xc * ss - xs * cs) / determinant;
  const double sine = (xs * cc - xc * cs) / determinant;
  double rest = 0.0;
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const double left = samples[n] - cosine * unit[n].real() - sine * unit[n].imag();
    rest = std::max(rest, std::abs(left));
  }
  return {{sine, cosine}, rest};
}

// The output of a tone behind the start-up, 20 ms long.
Output steady(const Pair& pair, double frequency, long long& first) {
  CDSPResampler24 converter(pair.source, pair.destination, 480, transitionBand);
  const int settled = converter.inputBeforeOutput(0) * 2 + 100;
  const int measured = static_cast<int>(pair.source / 50.0) + 2000;
  Output output = convert(converter, tone(frequency, pair.source, settled + measured), 480);
  first = static_cast<long long>(settled * pair.destination / pair.source / 2.0);
  output.samples.erase(output.samples.begin(), output.samples.begin() + first);
  return output;
}

class Resampler : public testing::TestWithParam<Pair> {};

TEST_P(Resampler, PassesTheBandUnchangedAndInTime) {
  const Pair pair = GetParam();
  const double ripple = pair.pureChain() ? 1e-6 : 1e-4;        // dB
  const double spurious = pair.pureChain() ? -175.0 : -165.0;  // dB
  for (const double part : {0.013, 0.3, 0.617, 0.9}) {
    SCOPED_TRACE(part);
    const double frequency = part * pair.corner();
    long long first = 0;
    const Output output = steady(pair, frequency, first);
    const Fit found = fit(output.samples, first, frequency, pair.destination);
    EXPECT_LT(std::abs(decibel(std::abs(found.gain))), ripple);
    const double late = std::arg(found.gain) / (2.0 * std::numbers::pi * frequency);
    EXPECT_LT(std::abs(late * pair.slower()), 1e-3);
    EXPECT_LT(decibel(found.rest), spurious);
  }
}

TEST_P(Resampler, StopsWhatLiesBeyondTheCorner) {
  const Pair pair = GetParam();
  if (pair.source <= pair.destination) return;  // nothing lies beyond
  for (const double part : {0.0, 0.02, 0.2, 0.5, 0.97}) {
    const double frequency = pair.corner() + part * (0.5 * pair.source - pair.corner());
    long long first = 0;
    const Output output = steady(pair, frequency, first);
    const auto [low, high] = std::ranges::minmax(output.samples);
    EXPECT_LT(decibel(std::max(-low, high)), pair.pureChain() ? -175.0 : -165.0) << frequency;
  }
}

TEST_P(Resampler, GivesTheSameStreamForEveryCallSizeAndAfterClear) {
  const Pair pair = GetParam();
  const std::vector<double> input = noise(21'000);
  CDSPResampler24 single(pair.source, pair.destination, 1, transitionBand);
  const Output reference = convert(single, input, 1);
  const auto firstOutput = std::ranges::find_if(reference.counts, [](int n) { return n > 0; });
  EXPECT_EQ(firstOutput - reference.counts.begin(), single.inputBeforeOutput(0));
  for (const int callSize : {1, 7, 480, 5000}) {
    SCOPED_TRACE(callSize);
    CDSPResampler24 converter(pair.source, pair.destination, callSize, transitionBand);
    for (const char* run : {"fresh", "cleared"}) {
      const Output output = convert(converter, input, callSize);
      ASSERT_EQ(output.samples.size(), reference.samples.size()) << run;
      // The interpolator's counters start over after calls, so that rounding follows them.
      for (std::size_t n = 0; n < output.samples.size(); ++n)
        ASSERT_NEAR(output.samples[n], reference.samples[n], 1e-11) << run << n;
      EXPECT_LE(std::ranges::max(output.counts), converter.maxOutputLength(callSize));
      converter.clear();
    }
  }
}

TEST_P(Resampler, GivesTheSameStreamOnEveryInstructionSet) {
  const Pair pair = GetParam();
  const std::vector<double> input = noise(9'000);
  std::vector<double> streams[instructionSetCount];
  for (const auto set : {InstructionSet::Base, InstructionSet::Avx2}) {
    const ScopedInstructionSet scope(set);
    CDSPResampler24 converter(pair.source, pair.destination, 480, transitionBand);
    streams[static_cast<std::size_t>(set)] = convert(converter, input, 480).samples;
  }
  ASSERT_EQ(streams[0].size(), streams[1].size());
  for (std::size_t n = 0; n < streams[0].size(); ++n)
    ASSERT_NEAR(streams[0][n], streams[1][n], 1e-14) << n;
}

TEST_P(Resampler, NeitherLosesASampleNorDrifts) {
  const Pair pair = GetParam();
  const double frequency = 0.45 * pair.corner();
  CDSPResampler24 converter(pair.source, pair.destination, 1, transitionBand);
  const int most = converter.maxOutputLength(1);
  const std::size_t keep = 3000;
  std::vector<double> last(keep);
  const std::complex<double> step =
      std::polar(1.0, 2.0 * std::numbers::pi * frequency / pair.source);
  std::complex<double> phasor;
  long long outputs = 0;
  int violations = 0, highest = 0;
  for (long long n = 0; n < longRun; ++n) {
    if (n % 1000 == 0) {  // the rotation alone would lose the phase
      phasor = std::polar(1.0, 2.0 * std::numbers::pi * turns(frequency, pair.source, n));
    }
    const double sample = phasor.imag();
    phasor *= step;
    const double* result = nullptr;
    const RealtimeGuard guard;
    const int count = converter.process(&sample, 1, result);
    violations += guard.violations();
    highest = std::max(highest, count);
    for (int k = 0; k < count; ++k) last[static_cast<std::size_t>(outputs++) % keep] = result[k];
  }
  EXPECT_EQ(violations, 0);
  EXPECT_LE(highest, most);
  const int next = static_cast<int>(outputs);
  EXPECT_LE(converter.inputBeforeOutput(next - 2), longRun);
  EXPECT_GE(converter.inputBeforeOutput(next + 1), longRun);
  std::ranges::rotate(last, last.begin() + outputs % static_cast<long long>(keep));
  const Fit found = fit(last, outputs - static_cast<long long>(keep), frequency, pair.destination);
  const double late = std::arg(found.gain) / (2.0 * std::numbers::pi * frequency);
  EXPECT_LT(std::abs(late * pair.slower()), 1e-3);
}

INSTANTIATE_TEST_SUITE_P(Rates, Resampler,
                         testing::Values(Pair{48000, 16000}, Pair{16000, 48000}, Pair{44100, 16000},
                                         Pair{16000, 44100}, Pair{22050, 16000}, Pair{16000, 22050},
                                         Pair{11025, 16000}, Pair{96000, 16000}, Pair{16000, 96000},
                                         Pair{192000, 16000}, Pair{16000, 192000},
                                         Pair{32000, 16000}, Pair{16000, 32000}, Pair{64000, 16000},
                                         Pair{16000, 64000}, Pair{8000, 16000}, Pair{48000, 44100},
                                         Pair{44100, 48000}, Pair{48000, 47999.7},
                                         Pair{44100.123, 16000}, Pair{48000, 3000}));

}  // namespace
}  // namespace vellumic::resample
