// The link to the service, against a service in a process of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "control/SharedMemoryAccessHandler.h"
#include "tests/control/ServiceDouble.h"
#include "tests/support/SystemCalls.h"

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

TEST(StatusLink, WithoutAServiceNothingIsOpenAndPublishingDoesNothing) {
  const OpenObjects before = openObjects();
  Link link(1);
  EXPECT_FALSE(link.open());
  link.publishStatus();
  EXPECT_EQ(openObjects(), before);
}

TEST(StatusLink, LastWriterWinsAndTeardownPublishesNothing) {
  const Service service("serve");
  const OpenObjects before = openObjects();
  {
    Link first(1), second(2), nameless(0);
    ASSERT_TRUE(first.open() && second.open() && nameless.open());
    for (Link* link : {&first, &second, &nameless}) {
      link->publishStatus();
      EXPECT_EQ(service.signalled(), link != &nameless);
    }
    EXPECT_EQ(service.board().block.instance.Data4[7], 2);
    first.abandonLink();
    EXPECT_TRUE(first.sharedMemoryMutex);
    StatusBlock last = second.statusBlock();
    second.closeLink();
    last.initialized = 1;
    last.alive = 0;
    const StatusBlock told = second.statusBlock();
    EXPECT_EQ(std::memcmp(&told, &last, sizeof last), 0);
  }
  EXPECT_EQ(service.board().block.alive, 1);  // the object is gone, its block is not told
  EXPECT_FALSE(service.signalled());
  EXPECT_EQ(openObjects(), before);
}

TEST(StatusLink, WhatAServiceLacksIsDoneWithout) {
  {
    const Service otherVersion("serve-version-4");
    Link link(1);
    EXPECT_FALSE(link.open());
    EXPECT_TRUE(link.mappingHandle && !link.view && link.sharedMemoryEvent);
    link.publishStatus();
    EXPECT_TRUE(otherVersion.signalled());
    EXPECT_EQ(otherVersion.board().block.instance.Data4[7], 0);
  }
  const Service withoutEvent("serve-without-event");
  Link link(1);
  EXPECT_FALSE(link.open());
  EXPECT_FALSE(link.mappingHandle || link.view || link.sharedMemoryEvent);
}

TEST(StatusLink, HeldMutexDropsOnePublication) {
  Service service("serve-held-mutex");
  Link link(1);
  ASSERT_TRUE(link.open());
  link.publishStatus();
  EXPECT_FALSE(service.signalled());
  service.releaseMutex();
  link.publishStatus();
  EXPECT_TRUE(service.signalled());
}

TEST(StatusLink, AbandonedMutexDropsOnePublicationAndIsPassedOn) {
  Service service("serve-abandoned-mutex");
  Link first(1), second(2);
  ASSERT_TRUE(first.open() && second.open());
  service.quit();
  first.publishStatus();
  EXPECT_FALSE(service.signalled());
  std::thread([&] { second.publishStatus(); }).join();  // would wait if the first thread kept it
  EXPECT_TRUE(service.signalled());
  EXPECT_EQ(service.board().block.instance.Data4[7], 2);
}

}  // namespace
}  // namespace vellumic::test
