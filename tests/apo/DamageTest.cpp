// What other processes and a failing machine can spoil for an object, and what it does then.
#include <windows.h>

#include <array>
#include <random>
#include <thread>

#include "control/Names.h"
#include "parameters/Catalogue.h"
#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

class Damage : public ApoWorld {
 protected:
  Damage() {
    writeFactorySettings();
    registry.writeSetting(L"none", 1, rawCount, [](unsigned) { return 0.0F; });
  }
  // While it sounds.
  static bool comesToEffects(CaptureObject& object, UINT wanted) {
    UINT count = ~wanted;
    for (int wait = 0; wait < 5000 && count != wanted; ++wait, Sleep(1)) {
      EXPECT_TRUE(object.sounds());
      EXPECT_EQ(object.listEffects(nullptr, &count), S_OK);
    }
    return count == wanted;
  }
  MediaType format = MediaType::extensible(4, 0);
  const ServiceObjects service;
};

// Whoever may write to the board writes anything there, its version too.
TEST_F(Damage, AScribbledBoardCostsItsReadersAlone) {
  CaptureObject object = initialized(mfx, mode::speech);
  const StatusBlock sound = service.block();
  auto& board = *reinterpret_cast<StatusBoard*>(service.board().data());
  std::mt19937 random(5);
  for (int round = 0; round < 20; ++round) {
    for (std::byte& byte : service.board()) byte = static_cast<std::byte>(random());
    ASSERT_TRUE(service.pingIsAnswered());
    EXPECT_EQ(object.lock(format), S_OK);
    EXPECT_TRUE(object.sounds());
    EXPECT_EQ(object.configuration->UnlockForProcess(), S_OK);
    const CaptureObject newcomer = initialized(efx);  // leaves other versions alone
    EXPECT_TRUE(IsEqualGUID(service.block().classId, mfx.id));
    board.version = 5;
  }
  ASSERT_TRUE(service.pingIsAnswered());
  const StatusBlock again = service.block();
  EXPECT_TRUE(IsEqualGUID(again.instance, sound.instance));
  EXPECT_EQ(again.propertyEvent, sound.propertyEvent);
}

// A mutex that somebody holds, or held when he died, costs one publication and is passed on.
TEST_F(Damage, AHeldOrAbandonedMutexDropsOnePublication) {
  std::array formats{MediaType::plain(2, 44100), MediaType::plain(2, 16000)};
  CaptureObject object = initialized(mfx);
  EXPECT_TRUE(service.signalled());
  const auto publishes = [&](MediaType& another) {
    EXPECT_EQ(object.lock(another), S_OK);
    EXPECT_EQ(object.configuration->UnlockForProcess(), S_OK);
    return service.signalled();
  };
  const auto elsewhere = [](auto action) { std::thread(action).join(); };
  const auto take = [&] { WaitForSingleObject(service.mutex(), INFINITE); };
  take();
  elsewhere([&] { EXPECT_FALSE(publishes(formats[0])); });
  ReleaseMutex(service.mutex());
  elsewhere(take);
  EXPECT_FALSE(publishes(formats[1]));
  elsewhere([&] { EXPECT_TRUE(publishes(formats[0])); });  // would wait if this thread kept it
}

// A program that stores a setting while the objects read it, and dies in the middle.
TEST_F(Damage, ASettingHalfWrittenIsSomeSoundAndAWholeOneIsTaken) {
  CaptureObject object = locked(mfx, format, mode::speech);
  registry.remove(RegistrySandbox::settingsPath());  // nothing to read changes nothing
  service.signalReload();
  EXPECT_TRUE(service.pingIsAnswered() && object.sounds() && comesToEffects(object, 4));
  writeFactorySettings();
  std::mt19937 random(6);
  for (int round = 0; round < 10; ++round) {
    registry.remove(RegistrySandbox::settingsPath() + L"\\1");
    std::jthread writer([&] {  // as far as it comes
      registry.writeSetting(L"1", 1, 1 + static_cast<unsigned>(random() % rawCount),
                            [](unsigned number) { return factorySettings()[number - 1]; });
    });
    service.signalReload();
    EXPECT_TRUE(object.sounds()) << round;
  }
  writeFactorySettings();
  service.signalReload();
  EXPECT_TRUE(comesToEffects(object, 4));
}

// Every local user may signal the events of an object, and reset them.
TEST_F(Damage, SignalsWithoutEndNeitherStopTheSoundNorTheTeardown) {
  CaptureObject object = locked(mfx, format, mode::speech);
  const KernelHandle reload = service.propertyEvent(),
                     ping(OpenEventW(EVENT_MODIFY_STATE, FALSE, pingEventName));
  const std::jthread storm([&](const std::stop_token& stop) {
    while (!stop.stop_requested())
      for (HANDLE event : {reload.get(), ping.get()}) SetEvent(event), ResetEvent(event);
  });
  registry.select(L"none");
  EXPECT_TRUE(comesToEffects(object, 0));  // what a reset lost came with another signal
  const ULONGLONG begin = GetTickCount64();
  object = CaptureObject();
  EXPECT_LT(GetTickCount64() - begin, 10000U);
}

// Somebody made the ping event first, for nobody but himself. Pings come by another event then,
// which stays signalled.
TEST_F(Damage, AnEventWithForeignRightsIsDoneWithout) {
  SECURITY_ATTRIBUTES nobody{sizeof nobody, nullptr, FALSE};
  ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:", SDDL_REVISION_1,
                                                       &nobody.lpSecurityDescriptor, nullptr);
  const KernelHandle theirs(CreateEventW(&nobody, FALSE, FALSE, pingEventName));
  LocalFree(nobody.lpSecurityDescriptor);
  ASSERT_FALSE(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, pingEventName)));
  CaptureObject object = locked(mfx, format, mode::speech);
  registry.select(L"none");
  service.signalReload();
  EXPECT_TRUE(comesToEffects(object, 0));  // its setting still reaches it
  const KernelHandle fallback(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"PING"));
  SetEvent(fallback.get());
  for (int time = 0; time < 3; ++time) EXPECT_TRUE(service.signalled(5000));
  ResetEvent(fallback.get());
}

}  // namespace
}  // namespace vellumic::test
