// The link to the service, against a service in a process of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

#include "control/BoundedText.h"
#include "control/Names.h"
#include "control/SharedMemoryAccessHandler.h"
#include "tests/control/ImportHooks.h"
#include "tests/control/ServiceDouble.h"

namespace vellumic::test {
namespace {

struct Link : CSharedMemoryAccessHandler {
  explicit Link(unsigned char instance) {
    updateStatus([&](StatusBlock& block) {
      block.instance.Data4[7] = instance;  // one half suffices
      copyText(block.propertyEvent, std::wstring(300, L'x'));
    });
  }
};

TEST(StatusLink, WithoutAServiceNothingIsOpenAndPublishingDoesNothing) {
  const OpenObjects before = openObjects();
  Link link(1);
  EXPECT_FALSE(link.open());
  EXPECT_FALSE(link.mappingHandle || link.view || link.sharedMemoryEvent || link.sharedMemoryMutex);
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
      link->updateStatus([](StatusBlock& block) { block.alive = 1; });
      link->publishStatus();
      EXPECT_EQ(service.signalled(), link != &nameless);
    }
    EXPECT_EQ(service.board().block.instance.Data4[7], 2);
    EXPECT_EQ(service.board().block.propertyEvent[254], L'x');
    EXPECT_EQ(service.board().block.propertyEvent[255], L'\0');
    first.abandonLink();
    EXPECT_TRUE(first.sharedMemoryMutex);
  }
  EXPECT_EQ(service.board().block.alive, 1);  // the object is gone, its block is not told
  EXPECT_FALSE(service.signalled());
  EXPECT_EQ(openObjects(), before);
}

TEST(StatusLink, OtherVersionGivesUpTheViewOnly) {
  const Service service("serve-version-4");
  Link link(1);
  EXPECT_FALSE(link.open());
  EXPECT_TRUE(link.mappingHandle && !link.view && link.sharedMemoryEvent);
  link.publishStatus();
  EXPECT_TRUE(service.signalled());
  EXPECT_EQ(service.board().block.instance.Data4[7], 0);
}

TEST(StatusLink, MissingEventClosesEverything) {
  const Service service("serve-without-event");
  Link link(1);
  EXPECT_FALSE(link.open());
  EXPECT_FALSE(link.mappingHandle || link.view || link.sharedMemoryEvent);
}

TEST(StatusLink, HeldMutexDropsOnePublication) {
  const Service service("serve-held-mutex");
  Link link(1);
  ASSERT_TRUE(link.open());
  link.publishStatus();
  EXPECT_FALSE(service.signalled());
  Sleep(1200);
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

TEST(StatusLink, RunningMarksOfEarlierLocksStayOpen) {
  const KernelHandle mark(CreateSemaphoreW(nullptr, 0, 5, apoRunningName));
  const int before = openObjects().handles;
  {
    Link link(1);
    for (int lock = 0; lock < 3; ++lock) link.markRunning();
    EXPECT_EQ(openObjects().handles, before + 3);
  }
  EXPECT_EQ(openObjects().handles, before + 2);
  EXPECT_EQ(WaitForSingleObject(mark.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

}  // namespace
}  // namespace vellumic::test
