// What other processes and a failing machine can spoil for an object, and what it does then.
#include <windows.h>

#include <array>
#include <cmath>
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
  // Ten calls; true when every sample that came out is finite.
  static bool sounds(CaptureObject& object) {
    bool finite = true;
    for (int call = 0; call < 10; ++call) {
      std::array<float, 480 * 4> samples;
      for (std::size_t n = 0; n < samples.size(); ++n)
        samples[n] = 0.1F * std::sin(0.1F * static_cast<float>(n));
      finite = finite && object.process(samples.data(), 480).u32ValidFrameCount == 480;
      for (const float sample : samples) finite = finite && std::isfinite(sample);
    }
    return finite;
  }
  CaptureObject playing() {
    CaptureObject object = initialized(mfx, mode::speech);
    EXPECT_EQ(object.lock(format), S_OK);
    return object;
  }
  // While it sounds.
  static bool comesToEffects(CaptureObject& object, UINT wanted) {
    UINT count = ~wanted;
    for (int wait = 0; wait < 5000 && count != wanted; ++wait, Sleep(1)) {
      EXPECT_TRUE(sounds(object));
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
    EXPECT_TRUE(sounds(object));
    EXPECT_EQ(object.configuration->UnlockForProcess(), S_OK);
    const CaptureObject newcomer = initialized(efx);
    board.version = 5;
  }
  ASSERT_TRUE(service.pingIsAnswered());
  const StatusBlock again = service.block();
  EXPECT_TRUE(IsEqualGUID(again.instance, sound.instance));
  EXPECT_EQ(again.propertyEvent, sound.propertyEvent);
}

// A program that stores a setting while the objects read it, and dies in the middle.
TEST_F(Damage, ASettingHalfWrittenIsSomeSoundAndAWholeOneIsTaken) {
  CaptureObject object = playing();
  std::mt19937 random(6);
  for (int round = 0; round < 10; ++round) {
    registry.remove(RegistrySandbox::settingsPath() + L"\\1");
    std::jthread writer([&] {  // as far as it comes
      registry.writeSetting(L"1", 1, 1 + static_cast<unsigned>(random() % rawCount),
                            [](unsigned number) { return factorySettings()[number - 1]; });
    });
    service.signalReload();
    EXPECT_TRUE(sounds(object)) << round;
  }
  writeFactorySettings();
  service.signalReload();
  EXPECT_TRUE(comesToEffects(object, 4));
}

// Every local user may signal the events of an object, and reset them.
TEST_F(Damage, SignalsWithoutEndNeitherStopTheSoundNorTheTeardown) {
  CaptureObject object = playing();
  const KernelHandle reload(
      OpenEventW(EVENT_MODIFY_STATE, FALSE, service.block().propertyEvent.data())),
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

// Somebody made the ping event first, for nobody but himself.
TEST_F(Damage, AnEventWithForeignRightsIsDoneWithout) {
  ACL nobody{};
  InitializeAcl(&nobody, sizeof nobody, ACL_REVISION);
  SECURITY_DESCRIPTOR descriptor{};
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, &nobody, FALSE);
  SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
  const KernelHandle theirs(CreateEventW(&attributes, FALSE, FALSE, pingEventName));
  ASSERT_FALSE(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, pingEventName)));
  CaptureObject object = playing();
  registry.select(L"none");
  service.signalReload();
  EXPECT_TRUE(comesToEffects(object, 0));  // its setting still reaches it
}

}  // namespace
}  // namespace vellumic::test
