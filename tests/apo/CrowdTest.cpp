// Two processes with sixteen objects each, made, locked, called, reloaded and released at random by
// four threads in each. A service pings them all the time: what the board shows is one object's
// own, whole. At the end each of the 32 that live shows itself, and nothing is left of the others.
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <thread>

#include "control/BoundedText.h"
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
  Crowd() { writeFactorySettings(); }
  void TestBody() override {}

  // In the end every place holds an object.
  void live(unsigned seed) {
    std::vector<std::jthread> threads;
    for (std::size_t t = 0; t < threadsEach; ++t)
      threads.emplace_back(
          [this, t, seed] { live(members_[t], std::mt19937(seed + static_cast<unsigned>(t))); });
  }
  void release() {
    for (Members& members : members_)
      for (Member& member : members) member.object = CaptureObject();
    TearDown();
  }

 private:
  struct Member {
    MediaType format;  // outlives the object, which keeps it
    CaptureObject object;
    bool locked = false;
  };
  using Members = std::array<Member, objectsPerThread>;

  void live(Members& members, std::mt19937 random) {
    const ServiceObjects service;
    const ULONGLONG end = GetTickCount64() + soakMilliseconds();
    while (GetTickCount64() < end) step(members[random() % members.size()], random, service);
    for (Member& member : members) create(member, random);
  }
  void create(Member& member, std::mt19937& random) {
    member.object = initialized(classCases[random() % classCases.size()], mode::speech);
    member.locked = false;
  }
  void step(Member& member, std::mt19937& random, const ServiceObjects& service) {
    const unsigned action = random() % 8;
    if (!member.object.object || action == 0) return create(member, random);
    if (action == 1) {  // of the object that published last, whosever it is
      const KernelHandle event = service.propertyEvent();
      if (event) SetEvent(event.get());
    } else if (action < 4) {
      const std::array<unsigned, 3> rates{16000, 44100, 48000};
      if (!member.locked)
        member.format.wave =
            MediaType::plain(1U << (random() % 4), rates[random() % rates.size()]).wave;
      EXPECT_EQ(member.locked ? member.object.configuration->UnlockForProcess()
                              : member.object.lock(member.format),
                S_OK);
      member.locked = !member.locked;
    } else if (member.locked) {
      std::array<float, 160 * 8> samples{};
      EXPECT_EQ(member.object.process(samples.data(), 160).u32ValidFrameCount, 160U);
    }
  }

  std::array<Members, threadsEach> members_;
};

const ChildMode crowd("crowd", [] {
  const KernelHandle full(OpenEventW(EVENT_MODIFY_STATE, FALSE, fullName)),
      quit(OpenEventW(SYNCHRONIZE, FALSE, quitName));
  Crowd world;
  world.live(2000);
  SetEvent(full.get());
  WaitForSingleObject(quit.get(), 60000);
  world.release();
  return testing::Test::HasFailure() ? 1 : 0;
});

TEST(Crowds, TheBoardIsSoundAndShowsAllOfTwoProcesses) {
  const ServiceObjects service;
  const KernelHandle full(CreateEventW(nullptr, TRUE, FALSE, fullName)),
      quit(CreateEventW(nullptr, TRUE, FALSE, quitName));
  ChildProcess child("crowd");
  Crowd world;
  std::thread here([&] { world.live(1000); });
  std::set<std::wstring> seen;  // by their events
  const auto ping = [&] {       // wakes one object, which shows itself
    if (!service.pingIsAnswered(100)) return;
    const StatusBlock block = service.block();
    const auto which = std::ranges::find_if(
        classCases, [&](const ClassCase& one) { return IsEqualGUID(one.id, block.classId); });
    ASSERT_NE(which, classCases.end());
    EXPECT_EQ(block.alive, 1);
    EXPECT_EQ(std::wstring(block.friendlyName.data()),
              L"CVellumicAPOCapture" + std::filesystem::path(which->name).wstring());
    const std::wstring event = block.propertyEvent.data();
    EXPECT_EQ(event,
              std::wstring(L"Global\\VellumicAPOPropEvent") + GuidText(block.instance).c_str());
    seen.insert(event);
  };
  while (child.runs() && WaitForSingleObject(full.get(), 0) != WAIT_OBJECT_0) {
    ping();
    Sleep(20);
  }
  here.join();
  ASSERT_TRUE(child.runs()) << "the other process ended with " << child.wait();

  std::printf("%zu objects seen while they came and went\n", seen.size());
  seen.clear();
  for (int n = 0; n < 2000 && seen.size() < everybody; ++n) ping();
  EXPECT_EQ(seen.size(), everybody);
  SetEvent(quit.get());
  EXPECT_EQ(child.wait(), 0U);
  world.release();
  EXPECT_EQ(canUnload(), S_OK);
}

}  // namespace
}  // namespace vellumic::test
