#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "engine/Arena.h"

namespace vellumic {
namespace {

TEST(Arena, TheLastByteIsNeverHandedOut) {
  Arena arena;
  EXPECT_EQ(arena.allocate(Arena::capacity), nullptr);
  EXPECT_NE(arena.allocate(Arena::capacity - 100), nullptr);
  EXPECT_EQ(arena.allocate(100), nullptr);
  EXPECT_EQ(arena.allocate(static_cast<std::size_t>(-1)), nullptr);
  EXPECT_NE(arena.allocate(99), nullptr);
  EXPECT_EQ(arena.liveCount(), 2U);
}

TEST(Arena, MemoryReturnsZeroedWithTheLastBlockOnly) {
  Arena arena;
  auto* first = static_cast<char*>(arena.allocate(64));
  void* second = arena.allocate(64);
  ASSERT_EQ(second, first + 64);
  std::memset(first, 0x55, 128);
  EXPECT_TRUE(arena.release(first));
  EXPECT_EQ(arena.used(), 128U);
  EXPECT_NE(arena.allocate(64), first);  // no free list
  EXPECT_TRUE(arena.release(second));
  EXPECT_FALSE(arena.release(nullptr));
  EXPECT_TRUE(arena.release(second));
  EXPECT_FALSE(arena.release(second));
  auto* again = static_cast<char*>(arena.allocate(128));
  ASSERT_EQ(again, first);
  EXPECT_TRUE(std::all_of(again, again + 128, [](char byte) { return byte == 0; }));
}

}  // namespace
}  // namespace vellumic
