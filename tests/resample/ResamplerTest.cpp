// What the converter does to sound, for one table of rate pairs: tones inside and beyond the band
// against the sine itself, count and drift, and that it makes no difference how the input is cut
// into calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <utility>
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

using Pair = std::pair<double, double>;  // source and destination, Hz

double sine(double frequency, double rate, long long sample) {
  const double turns = std::fmod(frequency * static_cast<double>(sample), rate) / rate;
  return std::sin(2.0 * std::numbers::pi * turns);
}

std::vector<double> tone(double frequency, double rate, int count) {
  std::vector<double> samples(static_cast<std::size_t>(count));
  for (std::size_t n = 0; n < samples.size(); ++n)
    samples[n] = sine(frequency, rate, static_cast<long long>(n));
  return samples;
}

std::vector<double> noise(int count) {
  std::minstd_rand random;
  std::uniform_real_distribution<double> level(-0.5, 0.5);
  std::vector<double> samples(static_cast<std::size_t>(count));
  for (double& sample : samples) sample = level(random);
  return samples;
}

struct Output {
  std::vector<double> samples;
  std::vector<int> due;  // of each input: outputs up to it, as the converter announced them
  int mostOfACall = 0;
};

Output convert(CDSPProcessor& converter, const std::vector<double>& input, int callSize) {
  Output output;
  for (std::size_t at = 0; at < input.size(); at += static_cast<std::size_t>(callSize)) {
    const int count = std::min(callSize, static_cast<int>(input.size() - at));
    std::vector<int> steps(static_cast<std::size_t>(count), 1);
    converter.pace(steps);
    for (int due = static_cast<int>(output.samples.size()); const int step : steps)
      output.due.push_back(due += step);
    const double* result = nullptr;
    const int produced = converter.process(input.data() + at, count, result);
    output.samples.insert(output.samples.end(), result, result + produced);
    EXPECT_EQ(output.due.back(), static_cast<int>(output.samples.size()));
    output.mostOfACall = std::max(output.mostOfACall, produced);
  }
  return output;
}

double largestDifference(const std::vector<double>& a, const std::vector<double>& b) {
  double largest = a.size() == b.size() ? 0.0 : 1.0;
  for (std::size_t n = 0; n < std::min(a.size(), b.size()); ++n)
    largest = std::max(largest, std::abs(a[n] - b[n]));
  return largest;
}

class Resampler : public testing::TestWithParam<Pair> {};

// Behind the start-up a tone in the band is the same tone in time, one from the corner on nothing.
TEST_P(Resampler, PassesTheBandInTimeAndStopsWhatLiesBeyond) {
  const auto [source, destination] = GetParam();
  for (const double part : {0.013, 0.3, 0.617, 0.9, 1.0, 1.05, 1.3, 2.1, 2.97}) {
    const double frequency = part * 0.5 * std::min(source, destination);
    if (frequency >= 0.5 * source) break;
    CDSPResampler24 converter(source, destination, 480, transitionBand);
    const int settled = converter.inputBeforeOutput(0);
    const int count = 2 * settled + static_cast<int>(source / 50.0) + 2000;
    const Output output = convert(converter, tone(frequency, source, count), 480);
    double largest = 0.0;
    for (auto n = static_cast<std::size_t>(settled * destination / source);
         n < output.samples.size(); ++n) {
      const double expected =
          part < 1.0 ? sine(frequency, destination, static_cast<long long>(n)) : 0.0;
      largest = std::max(largest, std::abs(output.samples[n] - expected));
    }
    EXPECT_LT(largest, 5e-9) << part;
  }
}

TEST_P(Resampler, GivesTheSameStreamForEveryCallSizeInstructionSetAndAfterClear) {
  const auto [source, destination] = GetParam();
  const std::vector<double> input = noise(21'000);
  CDSPResampler24 single(source, destination, 1, transitionBand);
  const int delay = single.inputBeforeOutput(0);
  const Output reference = convert(single, input, 1);
  EXPECT_EQ(std::ranges::count(reference.due, 0), delay);
  for (const int callSize : {1, 7, 480, 5000}) {
    SCOPED_TRACE(callSize);
    std::vector<double> streams[instructionSetCount];
    for (const auto set : {InstructionSet::Base, InstructionSet::Avx2}) {
      const ScopedInstructionSet scope(set);
      CDSPResampler24 converter(source, destination, callSize, transitionBand);
      const Output output = convert(converter, input, callSize);
      // The interpolator's counters start over after calls, so that rounding follows them, and an
      // output that falls on an input may come with the next.
      ASSERT_LT(largestDifference(output.samples, reference.samples), 1e-11);
      for (std::size_t n = 0; n < input.size(); ++n)
        ASSERT_NEAR(output.due[n], reference.due[n], 1) << n;
      EXPECT_LE(output.mostOfACall, converter.maxOutputLength(callSize));
      converter.clear();
      ASSERT_EQ(convert(converter, input, callSize).samples, output.samples);
      streams[static_cast<std::size_t>(set)] = output.samples;
    }
    ASSERT_LT(largestDifference(streams[0], streams[1]), 1e-14);
  }
}

TEST_P(Resampler, NeitherLosesASampleNorDrifts) {
  const auto [source, destination] = GetParam();
  const double frequency = 0.45 * 0.5 * std::min(source, destination);
  CDSPResampler24 converter(source, destination, 1, transitionBand);
  long long outputs = 0;
  int violations = 0;
  double error = 0.0;
  for (long long n = 0; n < longRun; ++n) {
    const double sample = sine(frequency, source, n);
    const double* result = nullptr;
    const RealtimeGuard guard;
    const int count = converter.process(&sample, 1, result);
    violations += guard.violations();
    for (int k = 0; k < count; ++k, ++outputs)
      if (n > longRun - 3000)
        error = std::max(error, std::abs(result[k] - sine(frequency, destination, outputs)));
  }
  EXPECT_EQ(violations, 0);
  EXPECT_LT(error, 5e-9);
  const int next = static_cast<int>(outputs);
  EXPECT_LE(converter.inputBeforeOutput(next - 2), longRun);
  EXPECT_GE(converter.inputBeforeOutput(next + 1), longRun);
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

// Positions inside the input come from counts that start over now and then: they stay exact. The
// input repeats, so the output does.
TEST(Interpolator, IsAsExactAfterMillionsOfSamples) {
  constexpr int period = 160, periods = 16'000;
  CDSPFracInterpolator<24, 673> interpolator(48000, 44100, 0.0, period);
  const std::vector<double> input = noise(period);
  const double* output = nullptr;
  for (int n = 0; n < 2; ++n) interpolator.process(input.data(), period, output);
  const std::vector<double> early(output, output + 147);
  for (int n = 0; n < periods; ++n)
    ASSERT_EQ(interpolator.process(input.data(), period, output), 147);
  EXPECT_LT(largestDifference(early, std::vector<double>(output, output + 147)), 5e-11);
}

TEST(Resampler24, IsOverABadSampleWithinItsMemoryAndGoesOnForAnother) {
  for (const double destination : {16000.0, 44100.0, 96000.0, 32000.0, 3000.0}) {
    CDSPResampler24 clean(48000, destination, 1, transitionBand),
        struck(48000, destination, 1, transitionBand),
        follower(48000, destination, 1, transitionBand);
    const int bad = 1000, over = bad + clean.memory();
    for (int n = 0; n < over + 5000; ++n) {
      if (n == 900) follower.clear();
      if (n == 100 || n == 900) follower.follow(clean);
      const double sample = n % 7 - 3.0;
      const double other = n == bad ? std::numeric_limits<double>::quiet_NaN() : sample;
      const double *expected = nullptr, *output = nullptr, *followed = nullptr;
      const int count = clean.process(&sample, 1, expected);
      ASSERT_EQ(struck.process(&other, 1, output), count);
      ASSERT_TRUE(n < over || std::equal(output, output + count, expected)) << n;
      if (n < 100) continue;
      ASSERT_EQ(follower.process(&sample, 1, followed), count);
      ASSERT_TRUE(std::equal(followed, followed + count, expected)) << n;
    }
  }
}

}  // namespace
}  // namespace vellumic::resample
