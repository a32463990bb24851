// Sharing of filters and transforms between converters and threads.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "resample/CDSPFIRFilter.h"
#include "resample/CDSPResampler24.h"

namespace vellumic::resample {
namespace {

FilterRequest request(int number) { return {0.5, 20.0 + number * 0.1, 60.0, 1.0, 1}; }

TEST(FilterCache, SharesEqualRequestsAndStaysSafeBeyondItsLimit) {
  std::vector<std::shared_ptr<const CDSPFIRFilter>> held;
  for (int n = 0; n < 2 * CDSPFIRFilter::cacheLimit; ++n) {
    held.push_back(CDSPFIRFilter::get(request(n)));
    EXPECT_LE(CDSPFIRFilter::cachedCount(), CDSPFIRFilter::cacheLimit);
  }
  EXPECT_EQ(CDSPFIRFilter::get(request(0)), held.front());
  EXPECT_NE(CDSPFIRFilter::get(request(1)), CDSPFIRFilter::get(request(0)));
  // All places are taken by filters in use: a new one is not kept, but works.
  EXPECT_NE(CDSPFIRFilter::get(request(-1)), CDSPFIRFilter::get(request(-1)));
  held.clear();
  EXPECT_EQ(CDSPFIRFilter::get(request(-2)), CDSPFIRFilter::get(request(-2)));
}

// Races show in the thread sanitizer's build; wrong sharing shows in the output.
TEST(FilterCache, ServesSeveralThreadsAtOnce) {
  constexpr double rates[] = {16000, 22050, 44100, 48000, 96000};
  const auto settleAtOne = [&](std::size_t offset, double& latest) {
    for (std::size_t n = 0; n < 10; ++n) {
      const double source = rates[(n + offset) % 5], destination = rates[(n * 3 + offset) % 5];
      CDSPResampler24 converter(source, destination, 1, 10.0);
      const double one = 1.0;
      const double* output = nullptr;
      for (int sample = 0; sample < 5000; ++sample) {
        if (converter.process(&one, 1, output) > 0) latest = output[0];
      }
      if (std::abs(latest - 1.0) > 1e-8) return;
    }
  };
  double latest[4] = {};
  {
    std::vector<std::jthread> threads;
    for (std::size_t n = 0; n < 4; ++n) {
      threads.emplace_back(settleAtOne, n, std::ref(latest[n]));
    }
  }
  for (const double value : latest) EXPECT_NEAR(value, 1.0, 1e-8);
}

}  // namespace
}  // namespace vellumic::resample
