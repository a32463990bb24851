// The link to the service, against a service in a process of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

#include "control/BoundedText.h"
#include "control/Names.h"
#include "control/OpenEvent.h"
#include "control/SharedMemoryAccessHandler.h"
#include "tests/control/ChildProcess.h"
#include "tests/control/ImportHooks.h"

namespace vellumic::test {
namespace {

constexpr wchar_t readyName[] = L"Global\\VellumicTestServiceReady";
constexpr wchar_t quitName[] = L"Global\\VellumicTestServiceQuit";

enum class With { everything, otherVersion, noEvent, heldMutex, abandonedMutex };

// Creates the four named objects and keeps them until told to quit.
int serve(With with) {
  const KernelHandle mutex(CreateMutexW(nullptr, FALSE, sharedMemoryMutexName));
  const KernelHandle mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                sizeof(StatusBoard), sharedMemoryName));
  const MappedView view(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, 0));
  static_cast<StatusBoard*>(view.get())->version = with == With::otherVersion ? 4 : 5;
  KernelHandle event;
  if (with != With::noEvent)
    event.reset(CreateEventW(nullptr, FALSE, FALSE, sharedMemoryEventName));
  const KernelHandle ping = createOpenEvent(pingEventName);
  const KernelHandle quit(OpenEventW(SYNCHRONIZE, FALSE, quitName));
  if (with == With::heldMutex || with == With::abandonedMutex)
    WaitForSingleObject(mutex.get(), INFINITE);
  SetEvent(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, readyName)).get());
  if (with == With::heldMutex) {
    Sleep(200);
    ReleaseMutex(mutex.get());
  }
  WaitForSingleObject(quit.get(), 20000);
  return 0;  // an owned mutex is abandoned here
}

const ChildMode modes[] = {
    {"serve", [] { return serve(With::everything); }},
    {"serve-version-4", [] { return serve(With::otherVersion); }},
    {"serve-without-event", [] { return serve(With::noEvent); }},
    {"serve-held-mutex", [] { return serve(With::heldMutex); }},
    {"serve-abandoned-mutex", [] { return serve(With::abandonedMutex); }},
};

class Service {
 public:
  explicit Service(const char* mode) : child_(mode) {
    EXPECT_EQ(WaitForSingleObject(ready_.get(), 20000), WAIT_OBJECT_0);
    mapping_.reset(OpenFileMappingW(FILE_MAP_READ, FALSE, sharedMemoryName));
    view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, sizeof(StatusBoard)));
    event_.reset(OpenEventW(SYNCHRONIZE, FALSE, sharedMemoryEventName));
  }
  ~Service() { quit(); }
  void quit() {
    SetEvent(quit_.get());
    EXPECT_EQ(child_.wait(), 0U);
  }
  const StatusBoard& board() const { return *static_cast<const StatusBoard*>(view_.get()); }
  bool signalled() const { return WaitForSingleObject(event_.get(), 0) == WAIT_OBJECT_0; }

 private:
  KernelHandle ready_{CreateEventW(nullptr, TRUE, FALSE, readyName)};
  KernelHandle quit_{CreateEventW(nullptr, TRUE, FALSE, quitName)};
  ChildProcess child_;
  KernelHandle mapping_, event_;
  MappedView view_;
};

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
  link.markRunning();
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
  Sleep(300);
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
