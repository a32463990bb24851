// Two processes with sixteen objects each, made, locked, called, reloaded and released at random by
// four threads in each. A service pings them all the time: what the board shows is one object's
// own, whole. At the end each of the 32 that live shows itself, and nothing is left of the others.
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <thread>

#include "control/BoundedText.h"
#include "control/Names.h"
#include "tests/apo/ApoWorld.h"
#include "tests/control/ChildProcess.h"

namespace vellumic::test {
namespace {

constexpr std::size_t threadsEach = 4, objectsPerThread = 4,
                      everybody = 2 * threadsEach * objectsPerThread;
constexpr wchar_t fullName[] = L"Global\\VellumicTestCrowdFull",
                  quitName[] = L"Global\\VellumicTestCrowdQuit";

// VELLUMIC_SOAK_SECONDS=600 for ten minutes.
DWORD soakMilliseconds() {
  const char* wanted = std::getenv("VELLUMIC_SOAK_SECONDS");
  return 1000 * static_cast<DWORD>(wanted != nullptr ? std::atoi(wanted) : 5);
}

class Crowd : public ApoWorld {
 public:
  explicit Crowd(unsigned seed) : seed_(seed) { writeFactorySettings(); }
  void TestBody() override {}

  void live() {
    std::array<std::thread, threadsEach> threads;
    for (std::size_t t = 0; t < threads.size(); ++t)
      threads[t] = std::thread([this, t] { live(members_[t], seed_ + static_cast<unsigned>(t)); });
    for (std::thread& thread : threads) thread.join();
  }
  void release() {
    members_ = {};
    TearDown();
  }

 private:
  struct Member {
    CaptureObject object;
    bool locked = false;
    std::unique_ptr<MediaType> format;
  };
  using Members = std::array<Member, objectsPerThread>;

  void live(Members& members, unsigned seed) {
    std::mt19937 random(seed);
    const ServiceObjects service;
    const ULONGLONG end = GetTickCount64() + soakMilliseconds();
    while (GetTickCount64() < end) step(members[random() % members.size()], random, service);
    for (Member& member : members)
      if (!member.object.object) step(member, random, service);
  }
  void step(Member& member, std::mt19937& random, const ServiceObjects& service) {
    if (!member.object.object) {
      member.object = initialized(classCases[random() % classCases.size()], mode::speech);
      return;
    }
    switch (random() % 8) {
      case 0:
        member = {};
        break;
      case 1:
      case 2:
        changeLock(member, random);
        break;
      case 3:  // of the object that published last, whosever it is
        if (const KernelHandle event{
                OpenEventW(EVENT_MODIFY_STATE, FALSE, service.block().propertyEvent.data())})
          SetEvent(event.get());
        break;
      default:
        std::array<float, 160 * 8> samples{};
        for (int call = 0; member.locked && call < 5; ++call)
          EXPECT_EQ(member.object.process(samples.data(), 160).u32ValidFrameCount, 160U);
    }
  }
  void changeLock(Member& member, std::mt19937& random) {
    if (member.locked) {
      EXPECT_EQ(member.object.configuration->UnlockForProcess(), S_OK);
    } else {
      const std::array<unsigned, 3> rates{16000, 44100, 48000};
      member.format = std::make_unique<MediaType>(
          MediaType::plain(1U << (random() % 4), rates[random() % rates.size()]));
      EXPECT_EQ(member.object.lock(*member.format), S_OK);
    }
    member.locked = !member.locked;
  }
  unsigned seed_;
  std::array<Members, threadsEach> members_;
};

const ChildMode crowd("crowd", [] {
  const KernelHandle full(OpenEventW(EVENT_MODIFY_STATE, FALSE, fullName)),
      quit(OpenEventW(SYNCHRONIZE, FALSE, quitName));
  Crowd world(2000);
  world.live();
  SetEvent(full.get());
  WaitForSingleObject(quit.get(), 60000);
  world.release();
  return testing::Test::HasFailure() ? 1 : 0;
});

// All of it one object's.
void expectSound(const StatusBlock& block) {
  const auto which = std::ranges::find_if(
      classCases, [&](const ClassCase& one) { return IsEqualGUID(one.id, block.classId); });
  ASSERT_NE(which, classCases.end());
  EXPECT_EQ(block.alive, 1);
  EXPECT_EQ(std::wstring(block.friendlyName.data()),
            L"CVellumicAPOCapture" + std::filesystem::path(which->name).wstring());
  EXPECT_EQ(std::wstring(block.propertyEvent.data()),
            std::wstring(propertyEventPrefix) + GuidText(block.instance).c_str());
}

class Watch {
 public:
  // Wakes one object, and notes it when it shows itself.
  void ping() {
    if (const KernelHandle ping{OpenEventW(EVENT_MODIFY_STATE, FALSE, pingEventName)})
      SetEvent(ping.get());
    if (WaitForSingleObject(event_.get(), 100) != WAIT_OBJECT_0) return;
    const StatusBlock block = service_.block();
    expectSound(block);
    std::array<unsigned char, sizeof(GUID)> instance{};
    std::memcpy(instance.data(), &block.instance, sizeof(GUID));
    seen.insert(instance);
  }
  std::set<std::array<unsigned char, sizeof(GUID)>> seen;

 private:
  const ServiceObjects service_;
  KernelHandle event_{OpenEventW(SYNCHRONIZE, FALSE, sharedMemoryEventName)};
};

TEST(Crowds, TheBoardIsSoundAndShowsAllOfTwoProcesses) {
  const ServiceObjects service;
  const KernelHandle full(CreateEventW(nullptr, TRUE, FALSE, fullName)),
      quit(CreateEventW(nullptr, TRUE, FALSE, quitName));
  ChildProcess child("crowd");
  Crowd world(1000);
  std::thread here([&] { world.live(); });
  Watch during;
  while (child.runs() && WaitForSingleObject(full.get(), 0) != WAIT_OBJECT_0) {
    during.ping();
    Sleep(20);
  }
  here.join();
  ASSERT_TRUE(child.runs()) << "the other process ended with " << child.wait();

  Watch after;
  for (int n = 0; n < 2000 && after.seen.size() < everybody; ++n) after.ping();
  EXPECT_EQ(after.seen.size(), everybody);
  SetEvent(quit.get());
  EXPECT_EQ(child.wait(), 0U);
  world.release();
  EXPECT_EQ(exported<HRESULT WINAPI()>("DllCanUnloadNow")(), S_OK);
}

}  // namespace
}  // namespace vellumic::test
