// vellumic-ctl before a status board that somebody else scribbles over.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "control/Names.h"
#include "tools/ctl/StatusCollector.h"
#include "tools/ctl/StatusReport.h"

namespace vellumic::tools {
namespace {

void scribble(StatusBlock& block, std::mt19937& random) {
  auto* const bytes = reinterpret_cast<unsigned char*>(&block);
  if (random() % 4 == 0)
    for (std::size_t n = 0; n < sizeof block; ++n) bytes[n] = static_cast<unsigned char>(random());
  for (unsigned n = random() % 64; n > 0; --n)
    bytes[random() % sizeof block] = static_cast<unsigned char>(random());
}

// Every quote closed, nothing in them that would need an escape, one line.
testing::AssertionResult isOneJsonLine(const std::string& text) {
  bool quoted = false;
  int depth = 0;
  for (std::size_t n = 0; n < text.size(); ++n) {
    const auto c = static_cast<unsigned char>(text[n]);
    if (c < 32) return testing::AssertionFailure() << "control character at " << n;
    if (quoted && c == '\\') {
      ++n;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && (c == '{' || c == '[')) {
      ++depth;
    } else if (!quoted && (c == '}' || c == ']')) {
      --depth;
    }
  }
  if (quoted || depth != 0) return testing::AssertionFailure() << "does not end: " << text;
  return testing::AssertionSuccess();
}

TEST(CtlHostile, AnyBlockIsReported) {
  std::mt19937 random(14);
  std::vector<SeenObject> objects(3);
  for (int round = 0; round < 500; ++round) {
    for (SeenObject& object : objects) {
      scribble(object.block, random);
      object.alive = random() % 2 == 0;
    }
    const StatusFacts facts{.objects = objects, .activeSetting = "2"};
    ASSERT_TRUE(isOneJsonLine(statusJson(facts))) << round;
    const std::string table = statusTable(facts);
    ASSERT_TRUE(std::ranges::none_of(table, [](char c) { return c >= 0 && c < 32 && c != '\n'; }));
    ASSERT_FALSE(signalReload({.block = objects[0].block, .alive = true}));
  }
}

TEST(CtlHostile, CollectingEndsWhileTheBoardIsScribbledOver) {
  CompanionLink link(CompanionLink::Missing::make);
  const KernelHandle mapping(OpenFileMappingW(FILE_MAP_WRITE, FALSE, sharedMemoryName));
  const MappedView view(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, sizeof(StatusBoard)));
  ASSERT_TRUE(view);
  std::atomic<bool> going{true};
  std::thread vandal([&] {
    std::mt19937 random(15);
    const KernelHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, sharedMemoryEventName));
    while (going) {
      scribble(static_cast<StatusBoard*>(view.get())->block, random);
      SetEvent(event.get());
    }
  });
  StatusCollector collector(link);
  for (int n = 0; n < 3; ++n) collector.collect();
  going = false;
  vandal.join();
  EXPECT_LE(collector.objects().size(), 600U);  // 200 pings each
  EXPECT_EQ(collector.aliveCount(), 0U);
}

}  // namespace
}  // namespace vellumic::tools
