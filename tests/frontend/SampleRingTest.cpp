#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "frontend/ResamplerBank.h"
#include "frontend/SampleRing.h"

namespace vellumic {
namespace {

// The ring sample by sample, with its indices always reduced to the capacity.
struct PlainRing {
  PlainRing(int itsCapacity, int itsDelay)
      : capacity(itsCapacity), delay(itsDelay), read(place(-std::int64_t{delay})) {}
  int place(std::int64_t index) const {
    return static_cast<int>((index % capacity + capacity) % capacity);
  }
  int available() const { return place(std::int64_t{write} - read); }
  void push(float left, float right) {
    samples[static_cast<std::size_t>(write)] = {left, right};
    write = place(std::int64_t{write} + 1);
  }
  std::array<float, 2> pop() {
    return samples[static_cast<std::size_t>(std::exchange(read, place(std::int64_t{read} + 1)))];
  }
  void setDelay(int next) {
    read = place(read + std::min<std::int64_t>(std::int64_t{delay} - next, available()));
    delay = next;
  }

  int capacity, delay, write = 0, read;
  std::vector<std::array<float, 2>> samples =
      std::vector<std::array<float, 2>>(static_cast<std::size_t>(capacity));
};

TEST(SampleRing, DoesWhatAPlainOneDoesSampleBySample) {
  std::mt19937 random(4);
  for (const auto& [capacity, firstDelay] : {std::pair{2, 0}, {7, 3}, {100, 30}, {100, 250}}) {
    SampleRing ring;
    EXPECT_EQ(ring.available(), 0);
    ring.setDelay(firstDelay);
    ring.setCapacity(capacity);
    ring.setChannels(2);
    PlainRing plain(capacity, firstDelay);
    ChannelArrays arrays(2, std::vector<float>(300));
    float number = 0.0F;
    for (int step = 0; step < 3000; ++step) {
      const int count = static_cast<int>(random() % static_cast<unsigned>(2 * capacity)),
                first = static_cast<int>(random() % 50);
      const auto from = static_cast<std::size_t>(first),
                 to = from + static_cast<std::size_t>(count);
      ChannelArrays expected = arrays;
      const auto pop = [&](std::size_t at) {
        const auto taken = plain.pop();
        for (std::size_t c = 0; c < 2; ++c) expected[c][at] = taken[c];
      };
      const unsigned what = random() % 8;
      if (what <= 1) {  // the second channel has an array, or gets zeros
        for (auto& array : arrays) array[from] = ++number;
        expected = arrays;
        for (std::size_t i = from; i < to; ++i)
          plain.push(arrays[0][i], what == 0 ? arrays[1][i] : 0.0F);
        ring.push(what == 0 ? arrays : ChannelArrays{arrays[0]}, count, first);
      } else if (what <= 4) {
        const bool enough = plain.available() >= count;
        for (std::size_t i = from; i < to && enough; ++i) pop(i);
        ASSERT_EQ(ring.pop(arrays, count, first), enough) << step;
      } else if (what == 5) {
        for (std::size_t i = from; i < to; ++i) {
          plain.push(arrays[0][i], arrays[1][i]);
          if (plain.available() > 0) pop(i);
        }
        ring.exchange(arrays, count, first);
      } else if (what == 6) {
        const int delay = count == 0 ? std::numeric_limits<int>::max() : 2 * count;
        plain.setDelay(delay);
        ASSERT_TRUE(ring.setDelay(delay));
      } else if (step % 10 == 0) {
        plain.samples.assign(plain.samples.size(), {});
        ring.clear();
        if (step % 20 == 0) {
          plain = PlainRing(capacity, plain.delay);
          ring.reset();
        }
      }
      ASSERT_FALSE(ring.setDelay(-1));
      ASSERT_EQ(ring.available(), plain.available()) << step;
      ASSERT_EQ(arrays, expected) << step << ' ' << what;
    }
  }
}

TEST(ResamplerBank, TakesFromOneToSixteenChannelsAndTellsItsDelay) {
  ResamplerBank bank;
  EXPECT_EQ(bank.channels(), 2);
  for (const auto& [asked, channels] : {std::pair{16, 16}, {17, 16}, {1, 1}, {0, 1}}) {
    bank.setChannels(asked);
    EXPECT_EQ(bank.channels(), channels);
    EXPECT_EQ(ResamplerBank(asked, 1.0, 1.0).channels(), channels);
  }
  bank.setRates(16000.0, 48000.0);
  const float one = 1.0F;
  int made = 0, pushes = 0;
  while (bank.push({&one, 0, 1, 1}, 1, {&made, 1}) == 0) ++pushes;
  EXPECT_EQ(pushes, bank.framesBeforeOutput());
}

}  // namespace
}  // namespace vellumic
