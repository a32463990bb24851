#include <gtest/gtest.h>

#include "frontend/ResamplerBank.h"
#include "frontend/SampleRing.h"

namespace vellumic {
namespace {

// Pushes 1, 2, 3, ... and pops one sample for each.
class Counter {
 public:
  // How many samples ago the popped one went in, after `times` of these.
  int lag(SampleRing& ring, int times = 1) {
    for (int i = 0; i < times; ++i) {
      sample_[0][0] = ++pushed_;
      ring.push(sample_, 1);
      ring.pop(sample_, 1);
    }
    return static_cast<int>(pushed_ - sample_[0][0]);
  }

 private:
  ChannelArrays sample_{{0.0F}};
  float pushed_ = 0.0F;
};

TEST(SampleRing, DelaysAndMovesTheDelayWithoutLosingSamples) {
  SampleRing ring;
  ring.setDelay(30);
  ring.resize(100, 1);
  Counter counter;
  EXPECT_EQ(counter.lag(ring, 30), 30) << "the last of the delay's zeros";
  EXPECT_EQ(counter.lag(ring), 30);
  EXPECT_EQ(counter.lag(ring, 500), 30);
  EXPECT_FALSE(ring.setDelay(-1));
  for (const int delay : {70, 98, 0}) {
    ASSERT_TRUE(ring.setDelay(delay));
    EXPECT_EQ(counter.lag(ring), delay);
  }
}

TEST(SampleRing, ADelayAboveTheCapacityWraps) {
  for (const int delay : {100, 230, 2147483647}) {
    SampleRing ring;
    ring.resize(100, 1);
    Counter counter;
    counter.lag(ring, 250);
    ASSERT_TRUE(ring.setDelay(delay));
    EXPECT_EQ(counter.lag(ring), delay % 100);
    ASSERT_TRUE(ring.setDelay(0));
    EXPECT_EQ(counter.lag(ring), 0);
  }
}

TEST(SampleRing, ASmallerDelayStopsAtTheWriteIndex) {
  SampleRing ring;
  ring.setDelay(40);
  ring.resize(100, 1);
  ChannelArrays taken{std::vector<float>(40)};
  ASSERT_TRUE(ring.pop(taken, 30));  // ten of the delay's zeros wait
  ASSERT_TRUE(ring.setDelay(0));
  EXPECT_EQ(ring.available(), 0);
  EXPECT_FALSE(ring.pop(taken, 1));
  EXPECT_TRUE(ring.pop(taken, 0));
}

TEST(SampleRing, KeepsTheNewestWhenOverfilledAndClearsInPlace) {
  SampleRing ring;
  ring.resize(10, 2);
  ChannelArrays samples(2, std::vector<float>(25));
  for (std::size_t i = 0; i < 25; ++i) samples[1][i] = static_cast<float>(i);
  ring.push(samples, 25);
  EXPECT_EQ(ring.available(), 5);
  ASSERT_TRUE(ring.pop(samples, 2));
  EXPECT_EQ(samples[1][0], 20.0F);
  ring.clear();
  EXPECT_EQ(ring.available(), 3);
  ASSERT_TRUE(ring.pop(samples, 3));
  EXPECT_EQ(samples[1][0], 0.0F);
}

TEST(ResamplerBank, AnEmptyRingLeavesTheTargetAlone) {
  ResamplerBank bank(2, 16000.0, 48000.0);
  ChannelArrays target(2, std::vector<float>(1, 0.5F));
  EXPECT_FALSE(bank.pop(target, 1));
  EXPECT_EQ(target[1][0], 0.5F);
  const std::array<float, 2> frame{0.25F, -0.25F};
  int made = 0, pushes = 0;
  const auto push = [&] { return bank.push({frame.data(), 0, 1, 2}, 1, {&made, 1}); };
  while (push() == 0) ++pushes;
  EXPECT_EQ(pushes, bank.framesBeforeOutput());
  for (int i = 0; i < 3000; ++i) push();
  while (bank.pop(target, 1)) {
  }
  EXPECT_NEAR(target[1][0], -0.25F, 1e-6F);
}

}  // namespace
}  // namespace vellumic
