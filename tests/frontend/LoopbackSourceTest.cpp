#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <thread>
#include <vector>

#include "frontend/LoopbackSource.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int streamBlock = 1024;

// What the test's device does. Its sample number n (from 1) is n on the first channel, -n on the
// second, 0.5 on all others.
struct Device {
  MixFormat format{2, 16000};
  std::vector<int> packets;  // frames; negative: that many silent ones
  bool gone = false;         // nextPacketSize fails
  bool stuck = false;        // get fails
  bool moody = false;        // get fails two times of three
  bool endless = false;      // announces empty packets without end
  std::atomic<bool> closes{true};
  int played = 0;   // frames
  int refused = 0;  // get failed
  int asked = 0;    // get, in all
  std::atomic<int> opened{0};
  std::atomic<int> alive{0};
};

class ScriptedPackets final : public PacketSource {
 public:
  explicit ScriptedPackets(Device& device) : device_(device), samples_(20000U * 8U) {
    ++device_.alive;
    ++device_.opened;
  }
  ~ScriptedPackets() override {
    const auto end = Clock::now() + 5s;  // so that a wait fails instead of hanging
    while (!device_.closes && Clock::now() < end) std::this_thread::sleep_for(1ms);
    --device_.alive;
  }
  MixFormat mixFormat() const noexcept override { return device_.format; }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    if (device_.gone) return std::nullopt;
    if (device_.endless) return 1;
    if (device_.packets.empty()) return 0;
    return static_cast<std::uint32_t>(std::abs(device_.packets.front()));
  }
  bool get(Packet& packet) noexcept override {
    ++device_.asked;
    device_.refused += device_.stuck;
    if (device_.stuck || (device_.moody && device_.asked % 3 != 0)) return false;
    if (device_.endless) return true;
    const int frames = std::abs(device_.packets.front());
    packet = {samples_.data(), static_cast<std::uint32_t>(frames), device_.packets.front() < 0};
    const auto channels = static_cast<std::size_t>(device_.format.channels);
    for (std::size_t i = 0; i < static_cast<std::size_t>(frames) * channels; ++i) {
      const auto number = static_cast<float>(device_.played + 1 + static_cast<int>(i / channels));
      samples_[i] = i % channels == 0 ? number : i % channels == 1 ? -number : 0.5F;
    }
    return true;
  }
  void release(std::uint32_t frames) noexcept override {
    if (device_.endless) return;
    EXPECT_EQ(static_cast<int>(frames), std::abs(device_.packets.front()));
    device_.played += static_cast<int>(frames);
    device_.packets.erase(device_.packets.begin());
  }

 private:
  Device& device_;
  std::vector<float> samples_;
};

class Loopback : public ::testing::Test {
 protected:
  ~Loopback() override {
    source.stop();
    EXPECT_FALSE(source.streaming());
    EXPECT_EQ(device.alive, 0);
  }
  // One step of the block stage with these packets; true if the block has references.
  bool step(std::vector<int> packets, bool discards = false) {
    device.packets = std::move(packets);
    const RealtimeGuard guard;
    afresh = false;
    if (discards)
      source.discard();
    else
      afresh = source.drain();
    const bool got = source.popBlock(rows, streamBlock);
    EXPECT_EQ(guard.violations(), 0) << guard.first();
    return got;
  }
  // The samples that wait, from now on taken.
  int taken() {
    int count = 0;
    while (source.popBlock(rows, 1)) ++count;
    return count;
  }
  Device device;
  bool afresh = false;  // the latest drain's answer
  LoopbackSource source{{[this] { return std::make_unique<ScriptedPackets>(device); }, false}};
  ChannelArrays rows = ChannelArrays(2, std::vector<float>(16384, 99.0F));
};

// What one block after another brings, as the packets before it are numbered from 1 on.
TEST_F(Loopback, BlocksFollowOneAnotherThroughPausesDelaysAndDiscards) {
  struct Step {
    std::vector<int> packets;
    std::vector<float> block;  // its first and last sample; none without references
    int delay = -1;            // set before
    bool discards = false, afresh = false;
  };
  const std::vector<int> trickle{1};  // no pause
  const Step steps[] = {
      {{512, 512}, {}, -1, false, true},
      {{1024}, {1, 1024}},
      {{1024, 300}, {1025, 2048}},
      {{}, {}},  // a pause: the stream begins afresh, and its first block is dropped
      {{700}, {}, 10, false, true},
      {{1024}, {0, 3372 + 1014}},
      {{1024}, {4387 - 30, 4356 + 1024}, 40},
      {{-1024}, {5381 + 40, 0}, 0},
      {{3000, 3000}, {}, 10, true},
      {{1024}, {}},
      {{1024}, {0, 13144 + 1014}},
      {{6000, 100}, {14159, 15182}},  // of a long packet the first 5000
      {trickle, {15183, 16206}},
      {trickle, {16207, 17230}},
      {trickle, {17231, 18254}},
      {trickle, {18255, 19278}},
      {{1024}, {19279, 20302 + 1000}},
  };
  for (const int channels : {1, 2, 8}) {
    device.format.channels = channels;
    EXPECT_FALSE(step({512}));  // not started
    ASSERT_TRUE(source.start());
    device.played = 0;
    for (const auto& [packets, expected, delay, discards, begins] : steps) {
      SCOPED_TRACE(device.played);
      EXPECT_EQ(source.setDelay(delay), delay >= 0);
      ChannelArrays before = rows;
      EXPECT_EQ(step(packets, discards), !expected.empty());
      EXPECT_EQ(afresh, begins);
      for (const std::size_t r : {0U, 1U}) {  // of a mono device only the first
        std::vector<float>&row = rows[r], &was = before[r];
        const bool filled = !expected.empty() && static_cast<int>(r) < channels;
        const float sign = r == 0 ? 1.0F : -1.0F;
        EXPECT_EQ(row[0], filled ? sign * expected[0] : was[0]);
        EXPECT_EQ(row[streamBlock - 1], filled ? sign * expected[1] : was[streamBlock - 1]);
      }
    }
    EXPECT_TRUE(source.setDelay(std::numeric_limits<int>::max()));
    EXPECT_EQ(source.delay(), std::numeric_limits<int>::max());
    step({1024});
    source.stop();
    source.setDelay(0);
  }
}

TEST_F(Loopback, KeepsTheLatestSecondButASample) {
  device.format.sampleRate = 1000;
  source.setTargetRate(1000.0);
  source.start();
  rows.resize(1);
  step({1});
  for (const int frames : {1000, 1000, 300}) step({frames});  // the ring holds 999
  for (int n = 2301 - 998; n <= 2301; ++n) {
    ASSERT_TRUE(source.popBlock(rows, 1));
    ASSERT_EQ(rows[0][0], static_cast<float>(n));
  }
  EXPECT_FALSE(source.popBlock(rows, 1));
}

TEST_F(Loopback, TakesAnyRate) {
  // Rings smaller than a packet, and upsampling beyond what a packet may become.
  for (double rate : {1.0, 2.5, 100.0, 192000.0}) {
    source.stop();
    source.setTargetRate(rate);
    ASSERT_TRUE(source.start());
    step({5000, 5000, 5000});
    step({5000, 5000, 5000});
    // A packet becomes 5000 samples at most.
    EXPECT_EQ(taken(), rate == 192000.0 ? 30000 - streamBlock : 0);
  }
}

TEST_F(Loopback, ConvertsToTheRateInForceAtStart) {
  device.format.sampleRate = 48000;
  for (const double rate : {8000.0, 16000.0, 8000.0}) {
    source.setTargetRate(rate);
    ASSERT_TRUE(source.start());  // later a working stream of another rate is replaced
    ASSERT_TRUE(source.start());
    source.setTargetRate(24000.0);  // too late
    device.played = 0;
    step({48000});
    // Of 5000 frames, less the filters' delays of 740 and 1484.
    EXPECT_EQ(taken(), rate == 16000.0 ? 4260 / 3 : 3516 / 6);
    step(std::vector(12, 4800));
    EXPECT_EQ(device.packets.size(), 2U);                          // a second is taken
    EXPECT_EQ(taken(), static_cast<int>(rate) - 1 - streamBlock);  // and kept
    EXPECT_NEAR(rows[0][0], 2 * 48000.0F, 2000.0F);
  }
  EXPECT_EQ(device.opened, 3);
}

TEST_F(Loopback, ADeviceThatFailsEndsTheDrainAndIsOpenedAgain) {
  source.start();
  step({1024});
  for (const auto& [fault, discards] :
       {std::pair{&Device::gone, false}, {&Device::stuck, false}, {&Device::gone, true}}) {
    const int opened = device.opened.load();
    source.start();
    EXPECT_EQ(device.opened, opened);  // it works: nothing to open
    device.*fault = true;
    step({1024}, discards);
    EXPECT_EQ(source.streaming(), !discards) << "no pause of the loudspeakers";
    device.*fault = false;
    source.start();
    EXPECT_EQ(device.opened, opened + 1);
    step({1024});
    EXPECT_TRUE(step({1024}));
  }
  EXPECT_EQ(device.alive, 2);  // in use and retired
  EXPECT_EQ(device.refused, 3);
  device.moody = true;
  step(std::vector(6, 256));
  device.moody = false;
  EXPECT_EQ(device.packets.size(), 0U) << "three failures in a row end it, not six";
  device.endless = true;
  device.asked = 0;
  step({});
  EXPECT_EQ(device.asked, 1000);  // a millisecond each
  device.endless = false;
}

TEST_F(Loopback, StartTellsWhenNothingCanBeOpened) {
  EXPECT_FALSE(LoopbackSource().start());
  EXPECT_FALSE(LoopbackSource({[] { return std::unique_ptr<PacketSource>(); }, false}).start());
  EXPECT_FALSE(LoopbackSource({[]() -> std::unique_ptr<PacketSource> { throw 1; }, false}).start());
  for (MixFormat format : {MixFormat{0, 48000}, MixFormat{2, 0}, MixFormat{-1, -1}}) {
    device.format = format;
    EXPECT_FALSE(source.start());
    EXPECT_FALSE(step({}));
  }
}

// Beside the audio thread, and only when the test says so.
class LoopbackOpening : public ::testing::Test {
 protected:
  // A block's worth more has been played; true if the block has references.
  bool play() {
    device.packets = {streamBlock};
    source.drain();
    return source.popBlock(rows, streamBlock);
  }
  Device device;
  std::atomic<bool> opening{false}, go{false};
  ChannelArrays rows = ChannelArrays(2, std::vector<float>(streamBlock));
  LoopbackSource source{{[this] {
                           opening = true;
                           while (!go) std::this_thread::yield();
                           return std::make_unique<ScriptedPackets>(device);
                         },
                         true}};
};

TEST_F(LoopbackOpening, RunsBesideTheAudioThreadAndServesTheLatestRate) {
  source.setTargetRate(8000.0);
  ASSERT_TRUE(source.start());
  while (!opening) std::this_thread::yield();
  source.setTargetRate(16000.0);
  ASSERT_TRUE(source.start());  // still opening: no second helper
  EXPECT_FALSE(play());
  go = true;
  while (device.opened < 2) std::this_thread::yield();
  while (!source.streaming()) play();
  // What piled up meanwhile is dropped, and the first block.
  for (const bool expected : {false, true}) EXPECT_EQ(play(), expected);
  EXPECT_EQ(rows[0][streamBlock - 1] - rows[0][0], streamBlock - 1.0F);  // at the device's own rate
  go = false;
  source.setTargetRate(8000.0);
  ASSERT_TRUE(source.start());
  EXPECT_FALSE(play()) << "nothing more of the former rate";
  go = true;
  for (int times = 4; times <= 6; ++times) {
    device.gone = true;
    while (device.opened < times) {
      source.drain();
      EXPECT_TRUE(source.start());
    }
    device.gone = false;
    while (!source.streaming()) play();
  }
  source.stop();  // waits for the helper that may still be opening
  EXPECT_EQ(device.alive, 0);
}

// The audio service may keep a caller. Whoever stops goes on; what comes of the opening later is
// closed again. The test's device gives in at last, so that a wait fails instead of hanging.
class LoopbackLeaving : public ::testing::Test {
 protected:
  ~LoopbackLeaving() override {
    waitUntil([this] { return devices[0].opened + devices[1].opened == 2; });
    waitUntil([this] { return devices[0].alive + devices[1].alive == 0; });
  }
  template <class Condition>
  void waitUntil(Condition condition) {
    while (!condition() && Clock::now() < begin + 10s) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(condition());
  }
  const Clock::time_point begin = Clock::now();
  Device devices[2];
  std::atomic<bool> go{false};
  std::atomic<int> opened{0};
  int leftBehind = 0;
  LoopbackOpener opener{.open =
                            [this] {
                              while (!go && Clock::now() < begin + 5s)
                                std::this_thread::sleep_for(1ms);
                              return std::make_unique<ScriptedPackets>(devices[opened++ % 2]);
                            },
                        .patience = 20ms,
                        .onLeftBehind = [this] { ++leftBehind; }};
};

TEST_F(LoopbackLeaving, AnOpeningThatDoesNotReturnIsLeftBehind) {
  {
    LoopbackSource source(opener);
    ASSERT_TRUE(source.start());
    source.stop();
    EXPECT_EQ(leftBehind, 1);
    ASSERT_TRUE(source.start());  // another opening, which the destructor leaves
  }
  EXPECT_EQ(leftBehind, 2);
  EXPECT_LT(Clock::now() - begin, 2s);
  EXPECT_EQ(devices[0].opened, 0);
  go = true;
}

TEST_F(LoopbackLeaving, SoIsAStreamThatNobodyTookAndThatDoesNotClose) {
  go = true;
  devices[0].closes = false;
  LoopbackSource source(opener);
  for (Device& device : devices) {
    source.setTargetRate(&device == devices ? 8000.0 : 16000.0);
    ASSERT_TRUE(source.start());
    waitUntil([&] { return device.opened == 1; });
    std::this_thread::sleep_for(50ms);  // most likely it has arrived
  }
  source.stop();
  EXPECT_EQ(leftBehind, 1);
  EXPECT_LT(Clock::now() - begin, 2s);
  EXPECT_EQ(devices[0].alive, 1);
  devices[0].closes = true;
}

}  // namespace
}  // namespace vellumic
