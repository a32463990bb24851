#include <gtest/gtest.h>

#include <random>

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

// Pushes noise, channel c that of seeds[c], and returns the output.
ChannelArrays convertNoise(ResamplerBank& bank, std::array<unsigned, 3> seeds, int frames) {
  std::array<std::mt19937, 3> random{std::mt19937(seeds[0]), std::mt19937(seeds[1]),
                                     std::mt19937(seeds[2])};
  ChannelArrays heard(3);
  for (int n = 0; n < frames; ++n) {
    std::array<float, 3> frame;
    for (std::size_t c = 0; c < 3; ++c)
      frame[c] = static_cast<float>(random[c]() % 2000) * 1e-3F - 1.0F;
    int made = 0;
    bank.push({frame.data(), 0, 1, 3}, 1, {&made, 1});
    ChannelArrays target(3, std::vector<float>(static_cast<std::size_t>(made)));
    EXPECT_TRUE(bank.pop(target, made));
    for (std::size_t c = 0; c < 3; ++c)
      heard[c].insert(heard[c].end(), target[c].begin(), target[c].end());
  }
  return heard;
}

TEST(ResamplerBank, OneConverterServesChannelsThatAreAlike) {
  for (const double rate : {16000.0, 32000.0, 44100.0, 48000.0, 96000.0}) {
    ResamplerBank bank(3, 16000.0, rate), separate(3, 16000.0, rate);
    convertNoise(bank, {1, 2, 3}, 2000);
    convertNoise(separate, {1, 2, 3}, 2000);
    // What the channels had of their own is forgotten when memory() says so.
    convertNoise(bank, {4, 4, 4}, bank.memory());
    convertNoise(separate, {4, 4, 4}, bank.memory());
    bank.setAlike(true);
    EXPECT_EQ(convertNoise(bank, {5, 5, 5}, 1500)[0], convertNoise(separate, {5, 5, 5}, 1500)[0]);
    bank.setAlike(false);
    EXPECT_EQ(convertNoise(bank, {6, 7, 8}, 3000), convertNoise(separate, {6, 7, 8}, 3000)) << rate;
  }
}

}  // namespace
}  // namespace vellumic
