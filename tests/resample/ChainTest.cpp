// What the stages of a pair of rates cost in delay, the borders of what the converter accepts, and
// the filters that converters and threads share.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "resample/CDSPResampler24.h"

namespace vellumic::resample {
namespace {

TEST(Resampler24, TakesItsStatedDelays) {
  using Chain = CDSPResampler<CDSPFracInterpolator<24, 673>>;
  const struct {
    double source, destination;
    int oneStep, chain;  // inputs before the first output
    int memory, most;    // most: outputs of a call of 480
  } cases[] = {{48000, 16000, 740, 627, 2305, 160},  {96000, 16000, 1487, 1387, 4609, 80},
               {16000, 48000, 251, 283, 769, 1440},  {192000, 16000, 2975, 2891, 9217, 40},
               {64000, 16000, 999, 1123, 3073, 120}, {32000, 16000, 495, 495, 1537, 240},
               {16000, 192000, 253, 303, 769, 5760}, {22050, 16000, 298, 298, 1025, 350},
               {44100, 16000, 598, 598, 2049, 176},  {80000, 16000, 1267, 1267, 4545, 97},
               {48000, 3000, 4843, 4843, 15233, 30}, {16000, 32000, 247, 247, 769, 960},
               {48000, 44100, 264, 264, 1025, 442}};
  for (const auto& [source, destination, oneStep, chain, memory, most] : cases) {
    const CDSPResampler24 converter(source, destination, 1, 10.0);
    EXPECT_EQ(converter.inputBeforeOutput(0), oneStep) << source;
    EXPECT_EQ(converter.memory(), memory) << source;
    EXPECT_EQ(converter.maxOutputLength(480), most) << source;
    EXPECT_EQ(converter.latency() + converter.latencyFraction(), 0.0) << "all are taken out";
    EXPECT_EQ(Chain(source, destination, 1, 10.0, 180.15, PowerOfTwoChain::allowed,
                    WholeRatio::stageByStage)
                  .inputBeforeOutput(0),
              chain)
        << source;
  }
}

TEST(Resampler24, PassesEqualRatesThrough) {
  CDSPResampler24 converter(48000, 48000, 3, 10.0);
  const double input[] = {0.5, std::nan(""), -2.0};
  const double* output = nullptr;
  EXPECT_EQ(converter.process(input, 3, output), 3);
  EXPECT_EQ(output, input);
  EXPECT_EQ(converter.process(input, 99, output), 3);  // beyond maxInput: ignored
  EXPECT_EQ(converter.process(input, 0, output), 0);
}

double settledOn(CDSPResampler24& converter, int inputs) {
  const std::vector<double> ones(480, 1.0);
  double latest = 0.0;
  for (; inputs > 0; inputs -= 480) {
    const double* output = nullptr;
    if (converter.process(ones.data(), 480, output) > 0) latest = output[0];
  }
  return latest;
}

TEST(Resampler24, ConvertsFarApartRatesOrRefusesThem) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double bad : {0.0, -1.0, infinity, std::nan(""), 1e-300, 1e300}) {
    EXPECT_THROW(CDSPResampler24(bad, 16000, 1, 10), std::invalid_argument) << bad;
    EXPECT_THROW(CDSPResampler24(16000, bad, 1, 10), std::invalid_argument) << bad;
  }
  for (const double band : {0.0, 0.4, 46.0, std::nan("")})
    EXPECT_THROW(CDSPResampler24(48000, 16000, 1, band), std::invalid_argument) << band;
  for (const double band : {0.5, 45.0}) EXPECT_NO_THROW(CDSPResampler24(48000, 48000, 1, band));
  for (const int bits : {3, 19}) EXPECT_NO_THROW(CDSPRealFFTKeeper{bits}) << bits;
  for (const int bits : {2, 20}) EXPECT_THROW(CDSPRealFFTKeeper{bits}, std::invalid_argument);
  EXPECT_THROW(CDSPResampler24(48000, 16000, 0, 10), std::invalid_argument);
  EXPECT_THROW(CDSPResampler24(1, 131072, 129, 10), std::length_error);
  EXPECT_NO_THROW(CDSPResampler24(1, 131072, 128, 10));  // 2^24 outputs of a call
  EXPECT_THROW(CDSPResampler24(1, 262145, 1, 10), std::invalid_argument);
  EXPECT_NO_THROW(CDSPResampler24(1, 262144, 1, 10));
  EXPECT_NO_THROW(CDSPResampler24(262144, 1, 1, 10));
  CDSPResampler24 converter(48000, 100.0, 480, 10.0);
  EXPECT_NEAR(settledOn(converter, converter.inputBeforeOutput(600)), 1.0, 1e-8);
}

// Figures of the formula, worked out elsewhere.
TEST(LowPass, IsTheWindowedSinc) {
  const Kernel kernel = designLowPass({0.4, 34.0, 100.0, 3.0, 3});
  ASSERT_EQ(kernel.delay, 50);
  ASSERT_EQ(kernel.taps.size(), 101U);
  EXPECT_NEAR(kernel.taps[0], 1.3708228549946887e-05, 1e-14);
  EXPECT_NEAR(kernel.taps[25], 0.009114407818908005, 1e-14);
  EXPECT_NEAR(kernel.taps[50], 0.9959993952062323, 1e-14);
}

TEST(FilterCache, SharesEqualRequestsAndStaysSafeBeyondItsLimit) {
  const auto get = [](int number) {
    return CDSPFIRFilter::get({0.5, 20.0 + number * 0.1, 60.0, 1.0, 1});
  };
  std::vector<std::shared_ptr<const CDSPFIRFilter>> held;
  for (int n = 0; n < 200; ++n) {
    held.push_back(get(n));
    EXPECT_LE(CDSPFIRFilter::cachedCount(), 96);
  }
  EXPECT_EQ(get(0), held.front());
  EXPECT_NE(get(1), get(0));
  // All places are taken by filters in use: a new one is not kept, but works.
  EXPECT_NE(get(-1), get(-1));
  held.clear();
  EXPECT_EQ(get(-2), get(-2));
}

// Races show in the thread sanitizer's build; wrong sharing shows in the output.
TEST(FilterCache, ServesSeveralThreadsAtOnce) {
  constexpr double rates[] = {16000, 22050, 44100, 48000, 96000};
  double worst[4] = {};
  std::vector<std::jthread> threads;
  for (std::size_t thread = 0; thread < 4; ++thread)
    threads.emplace_back([&, thread] {
      for (std::size_t n = 0; n < 10; ++n) {
        CDSPResampler24 converter(rates[(n + thread) % 5], rates[(n * 3 + thread) % 5], 480, 10.0);
        worst[thread] = std::max(worst[thread], std::abs(settledOn(converter, 4800) - 1.0));
      }
    });
  threads.clear();
  for (const double error : worst) EXPECT_LT(error, 1e-8);
}

}  // namespace
}  // namespace vellumic::resample
