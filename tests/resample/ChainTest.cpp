// Which stages a pair of rates takes, and the borders of what the converter accepts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "resample/CDSPResampler24.h"

namespace vellumic::resample {
namespace {

TEST(ChainPlan, ListsTheStagesOfEveryKindOfRatio) {
  constexpr StagePlan halveFar{1, 2, 0.5, 45}, halveNear{1, 2, 0.5, 34}, doubleFirst{2, 1, 0.5, 10},
      doubleNear{2, 1, 0.5, 34}, doubleFar{2, 1, 0.5, 45};
  const struct {
    double source, destination;
    std::vector<StagePlan> stages;
    double reachedRate;
    bool fractional;
  } cases[] = {
      {16000, 16000, {}, 16000, false},
      {48000, 16000, {{1, 1, 1.0 / 3.0, 10}}, 48000, true},
      {32000, 16000, {{1, 2, 0.5, 10}}, 16000, false},
      {96000, 16000, {halveNear, {1, 1, 1.0 / 3.0, 10}}, 48000, true},
      {192000, 16000, {halveFar, halveNear, {1, 1, 1.0 / 3.0, 10}}, 48000, true},
      {64000, 16000, {halveNear, {1, 2, 0.5, 10}}, 16000, false},
      {16000, 32000, {doubleFirst}, 32000, false},
      {16000, 48000, {doubleFirst, doubleNear}, 64000, true},
      {16000, 192000, {doubleFirst, doubleNear, doubleFar, doubleFar}, 256000, true},
      {22050, 16000, {{2, 1, 0.5 * 16000 / 22050, 10}}, 44100, true},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(testing::Message() << expected.source << " to " << expected.destination);
    const ChainPlan plan =
        planChain(expected.source, expected.destination, 10.0, PowerOfTwoChain::allowed);
    EXPECT_TRUE(plan.stages == expected.stages);
    EXPECT_EQ(plan.reachedRate, expected.reachedRate);
    EXPECT_EQ(plan.fractional, expected.fractional);
  }
  EXPECT_TRUE(planChain(32000, 16000, 10.0, PowerOfTwoChain::forbidden).fractional);
}

using Chain = CDSPResampler<CDSPFracInterpolator<24, 673>>;

std::vector<double> noiseThrough(Chain converter, int count) {
  std::vector<double> outputs;
  unsigned state = 1;
  for (int n = 0; n < count; ++n) {
    state = state * 1664525U + 1013904223U;
    const double sample = static_cast<double>(state >> 8U) / 8388608.0 - 1.0;
    const double* result = nullptr;
    const int made = converter.process(&sample, 1, result);
    outputs.insert(outputs.end(), result, result + made);
  }
  return outputs;
}

TEST(Resampler24, ComputesWholeRatiosInOneStepAsTheChainWould) {
  constexpr double slow = 16000.0;
  for (int ratio = 3; ratio <= 12; ++ratio) {
    for (const auto& [source, destination] :
         {std::pair{ratio * slow, slow}, std::pair{slow, ratio * slow}}) {
      for (const auto powerOfTwo : {PowerOfTwoChain::allowed, PowerOfTwoChain::forbidden}) {
        const auto outputs = [&](WholeRatio way) {
          return noiseThrough(Chain(source, destination, 1, 10.0, 180.15, powerOfTwo, way),
                              static_cast<int>(0.25 * source));
        };
        const std::vector<double> oneStep = outputs(WholeRatio::inOneStep),
                                  chain = outputs(WholeRatio::stageByStage);
        // The chain's stages each begin at the first input, so the very start differs, but not
        // down by 3; where the chain stays there is nothing to compare.
        const bool down = source > destination,
                   alike = down && ratio != 4 && ratio != 6 && ratio != 8 && ratio != 12;
        const auto settled = static_cast<std::size_t>((alike  ? 0.0
                                                       : down ? 120.0
                                                              : 18.0) *
                                                      destination / slow);
        double start = 0.0, rest = 0.0;
        for (std::size_t n = 0; n < std::min(oneStep.size(), chain.size()); ++n) {
          double& largest = n < settled ? start : rest;
          largest = std::max(largest, std::abs(oneStep[n] - chain[n]));
        }
        EXPECT_LT(start, down ? 0.024 : 0.11) << source << " to " << destination;
        EXPECT_LT(rest, 1e-10) << source << " to " << destination;
      }
    }
  }
}

TEST(Resampler24, PassesEqualRatesThrough) {
  for (const double rate : {1.0, 2.0, 48000.0}) {
    CDSPResampler24 converter(rate, rate, 3, 10.0);
    const double input[] = {0.5, std::nan(""), -2.0};
    const double* output = nullptr;
    EXPECT_EQ(converter.process(input, 3, output), 3);
    EXPECT_EQ(output, input);
    EXPECT_EQ(converter.maxOutputLength(3), 3);
    EXPECT_EQ(converter.process(input, 0, output), 0);
    EXPECT_EQ(converter.process(input, 99, output), 3);  // beyond maxInput: ignored
  }
}

TEST(Resampler24, ConvertsFarApartRatesOrRefusesThem) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const auto make = [](double source, double destination, int maxInput, double band) {
    CDSPResampler24 converter(source, destination, maxInput, band);
  };
  for (const double bad : {0.0, -1.0, infinity, std::nan(""), 1e-300, 1e300}) {
    EXPECT_THROW(make(bad, 16000, 1, 10), std::invalid_argument) << bad;
    EXPECT_THROW(make(16000, bad, 1, 10), std::invalid_argument) << bad;
  }
  for (const double band : {0.0, 0.4, 46.0, std::nan("")}) {
    EXPECT_THROW(make(48000, 16000, 1, band), std::invalid_argument) << band;
  }
  EXPECT_THROW(make(48000, 16000, 0, 10), std::invalid_argument);
  EXPECT_THROW(make(1, 192000, 5000, 10), std::length_error);
  EXPECT_NO_THROW(make(1, 192000, 1, 10));

  // Fifteen stages; a second of the slow rate is 48000 inputs, the delay some 250 of them.
#ifdef VELLUMIC_SHORT_TESTS
  constexpr double slow = 100.0;
#else
  constexpr double slow = 1.0;
#endif
  CDSPResampler24 converter(48000, slow, 480, 10.0);
  const std::vector<double> ones(480, 1.0);
  const int calls = converter.inputBeforeOutput(600) / 480 + 1;
  double latest = 0.0;
  for (int call = 0; call < calls; ++call) {
    const double* output = nullptr;
    if (converter.process(ones.data(), 480, output) > 0) latest = output[0];
  }
  EXPECT_NEAR(latest, 1.0, 1e-8);
}

TEST(Resampler24, ForgetsASampleThatIsNotANumber) {
  for (const double destination : {16000.0, 44100.0, 96000.0}) {
    CDSPResampler24 clean(48000, destination, 1, 10.0), struck(48000, destination, 1, 10.0);
    const int reach = 6 * clean.inputBeforeOutput(0);
    for (int n = 0; n < 2 * reach; ++n) {
      const double sample = n % 7 - 3.0;
      const double bad = n == reach / 2 ? std::nan("") : sample;
      const double *expected = nullptr, *output = nullptr;
      const int count = clean.process(&sample, 1, expected);
      ASSERT_EQ(struck.process(&bad, 1, output), count);
      if (n < reach) continue;
      ASSERT_TRUE(std::equal(output, output + count, expected)) << n;
    }
  }
}

TEST(Resampler24, TakesItsStatedDelays) {
  const struct {
    double source, destination;
    int chain, oneStep;  // inputs before the first output
  } cases[] = {{48000, 16000, 627, 740}, {96000, 16000, 1387, 1487}, {16000, 48000, 283, 251}};
  for (const auto& [source, destination, chain, oneStep] : cases) {
    const auto delay = [&](WholeRatio way) {
      return Chain(source, destination, 1, 10.0, 180.15, PowerOfTwoChain::allowed, way)
          .inputBeforeOutput(0);
    };
    EXPECT_EQ(delay(WholeRatio::stageByStage), chain) << source;
    EXPECT_EQ(delay(WholeRatio::inOneStep), oneStep) << source;
  }
}

}  // namespace
}  // namespace vellumic::resample
