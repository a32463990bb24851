// The link to the service.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "control/SharedMemoryAccessHandler.h"
#include "tests/control/ServiceObjects.h"

namespace vellumic::test {
namespace {

struct Link : CSharedMemoryAccessHandler {
  explicit Link(unsigned char instance) {
    updateStatus([&](StatusBlock& block) {
      block.instance.Data4[7] = instance;  // one half suffices
      block.alive = 1;
    });
  }
};

TEST(StatusLink, LastWriterWinsAndTeardownPublishesNothing) {
  const ServiceObjects service;
  {
    Link first(1), second(2), nameless(0);
    ASSERT_TRUE(first.open() && second.open() && nameless.open());
    for (Link* link : {&first, &second, &nameless}) {
      link->publishStatus();
      EXPECT_EQ(service.signalled(), link != &nameless);
    }
    EXPECT_EQ(service.block().instance.Data4[7], 2);
    first.abandonLink();
    EXPECT_TRUE(first.sharedMemoryMutex);
    StatusBlock last = second.statusBlock();
    second.closeLink();
    last.initialized = 1;
    last.alive = 0;
    const StatusBlock told = second.statusBlock();
    EXPECT_EQ(std::memcmp(&told, &last, sizeof last), 0);
  }
  EXPECT_EQ(service.block().alive, 1);  // the object is gone, its block is not told
  EXPECT_FALSE(service.signalled());
}

TEST(StatusLink, WhatAServiceLacksIsDoneWithout) {
  {
    const ServiceObjects otherVersion(4);
    Link link(1);
    EXPECT_FALSE(link.open());
    EXPECT_TRUE(link.mappingHandle && !link.view && link.sharedMemoryEvent);
    link.publishStatus();
    EXPECT_TRUE(otherVersion.signalled());
    EXPECT_EQ(otherVersion.block().instance.Data4[7], 0);
  }
  const ServiceObjects withoutEvent(5, nullptr);
  Link link(1);
  EXPECT_FALSE(link.open());
  EXPECT_FALSE(link.mappingHandle || link.view || link.sharedMemoryEvent);
}

// A mutex that somebody holds, or held when he died, costs one publication and is passed on.
TEST(StatusLink, HeldAndAbandonedMutexesDropOnePublication) {
  const ServiceObjects service;
  Link first(1), second(2);
  ASSERT_TRUE(first.open() && second.open());
  const auto elsewhere = [](auto action) { std::thread(action).join(); };
  const auto take = [&] { WaitForSingleObject(service.mutex(), INFINITE); };
  take();
  elsewhere([&] { first.publishStatus(); });
  EXPECT_FALSE(service.signalled());
  ReleaseMutex(service.mutex());
  elsewhere(take);
  first.publishStatus();
  EXPECT_FALSE(service.signalled());
  elsewhere([&] { second.publishStatus(); });  // would wait if this thread kept it
  EXPECT_TRUE(service.signalled());
  EXPECT_EQ(service.block().instance.Data4[7], 2);
}

}  // namespace
}  // namespace vellumic::test
