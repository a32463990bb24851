// Two or more threads in one object's control operations.
#include <atomic>
#include <thread>

#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

class Threads : public ApoWorld {};

TEST_F(Threads, AnInitializeThatFailsLeavesTheNextOneAlone) {
  const KernelHandle asked(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    const ServiceObjects service;
    FakeCollection empty;  // tells so after a while
    empty.onCount = [&] {
      SetEvent(asked.get());
      Sleep(50);
    };
    CaptureObject object(which.id);
    HRESULT failed = S_OK;
    std::thread first([&] {
      auto data = blob();
      data.pDeviceCollection = &empty;
      failed = initialize(object, data);
    });
    ASSERT_EQ(WaitForSingleObject(asked.get(), 5000), WAIT_OBJECT_0);
    EXPECT_EQ(initialize(object, blob()), S_OK);
    first.join();
    EXPECT_EQ(failed, E_FAIL);
    EXPECT_TRUE(service.pingIsAnswered());  // the second's thread is at work
  }
}

TEST_F(Threads, FormatsAreLookedAtOneAfterTheOther) {
  MediaType first = MediaType::plain(2), second = MediaType::extensible(4, 0);
  CaptureObject object = initialized(efx);
  std::atomic<int> answers = 0, released = 0;
  const auto ask = [&](MediaType& format) {
    IAudioMediaType* answer = nullptr;
    EXPECT_EQ(object.object->IsInputFormatSupported(&format, &format, &answer), S_OK);
    ++answers;
    if (answer != nullptr) answer->Release();
  };
  ask(first);
  std::jthread another;
  first.onRelease = [&] {  // while the next pair takes its place
    if (++released > 1) return;
    another = std::jthread([&] { ask(second); });
    Sleep(50);
    EXPECT_EQ(answers, 1);
  };
  ask(second);
  another.join();
  object = CaptureObject();
  EXPECT_EQ(first.references + second.references, 0U);
}

// The audio service may keep the thread that opens the loopback. The object goes all the same, and
// the library stays for the thread. The device gives in at last: a wait fails instead of hanging.
TEST_F(Threads, ALoopbackThatDoesNotOpenKeepsNobody) {
  constexpr DWORD atLastMs = 20000;
  const KernelHandle go(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      opening(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  system.defaultRender = &speaker;
  speaker.onActivate = [&] {
    SetEvent(opening.get());
    WaitForSingleObject(go.get(), atLastMs);
  };
  MediaType format = MediaType::plain(2);
  CaptureObject object = locked(mfx, format, mode::speech);
  ASSERT_EQ(WaitForSingleObject(opening.get(), 5000), WAIT_OBJECT_0);
  const ULONGLONG begin = GetTickCount64();
  object = CaptureObject();
  ASSERT_LT(GetTickCount64() - begin, atLastMs / 2);
  EXPECT_EQ(canUnload(), S_OK);
  FreeLibrary(library());
  ASSERT_NE(GetModuleHandleW(L"VellumicAPO64c.dll"), nullptr);
  SetEvent(go.get());
  const auto held = [&] { return speaker.allReferences() + system.references; };
  for (int wait = 0; wait < 500 && held() != 0; ++wait) Sleep(10);
  EXPECT_EQ(held(), 0U);
}

}  // namespace
}  // namespace vellumic::test
