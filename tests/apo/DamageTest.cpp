// What other processes and a failing machine can spoil for an object, and what it does then.
#include <windows.h>

#include <array>
#include <cmath>
#include <random>
#include <thread>

#include "control/Handle.h"
#include "control/Names.h"
#include "engine/Arena.h"
#include "parameters/Catalogue.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {
namespace {

class Damage : public ApoWorld {
 protected:
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
    writeFactorySettings();
    CaptureObject object = initialized(mfx, mode::speech);
    EXPECT_EQ(object.lock(format_), S_OK);
    return object;
  }
  // While it sounds.
  static bool comesToEffects(CaptureObject& object, UINT wanted) {
    for (int wait = 0; wait < 5000; ++wait) {
      GUID* ids = nullptr;
      UINT count = 0;
      EXPECT_TRUE(sounds(object));
      EXPECT_EQ(object.effects->GetEffectsList(&ids, &count, nullptr), S_OK);
      CoTaskMemFree(ids);
      if (count == wanted) return true;
      Sleep(1);
    }
    return false;
  }

 private:
  MediaType format_ = MediaType::extensible(4, 0);  // outlives the lock
};

void* (*realCalloc)(std::size_t, std::size_t) = nullptr;

TEST_F(Damage, WithoutAnArenaInitializeSaysSoAndTheNextObjectWorks) {
  CaptureObject poor;
  {
    ImportTable imports(library());
    const auto noArena = +[](std::size_t count, std::size_t size) {
      return count * size == Arena::capacity ? nullptr : realCalloc(count, size);
    };
    realCalloc = reinterpret_cast<decltype(realCalloc)>(
        imports.replace("calloc", reinterpret_cast<void*>(noArena)));
    poor = CaptureObject(mfx.id);
  }
  MediaType format = MediaType::extensible(4, 0);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(initialize(poor, blob()), E_OUTOFMEMORY);
    EXPECT_NE(poor.lock(format), S_OK);
  }
  CaptureObject next = initialized(mfx);
  EXPECT_EQ(next.lock(format), S_OK);
  EXPECT_TRUE(sounds(next));
}

// Whoever may write to the board writes anything there, its version too.
TEST_F(Damage, AScribbledBoardCostsItsReadersAlone) {
  const ServiceObjects service;
  CaptureObject object = initialized(mfx, mode::speech);
  ASSERT_TRUE(service.pingIsAnswered());
  const StatusBlock sound = service.block();
  const KernelHandle mapping(OpenFileMappingW(FILE_MAP_WRITE, FALSE, sharedMemoryName));
  const MappedView view(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, 0));
  auto& board = *static_cast<StatusBoard*>(view.get());
  MediaType format = MediaType::extensible(4, 0);
  std::mt19937 random(5);
  for (int round = 0; round < 20; ++round) {
    for (std::size_t i = 0; i < sizeof board; ++i)
      reinterpret_cast<unsigned char*>(&board)[i] = static_cast<unsigned char>(random());
    ASSERT_TRUE(service.pingIsAnswered());
    EXPECT_EQ(object.lock(format), S_OK);
    EXPECT_TRUE(sounds(object));
    EXPECT_EQ(object.configuration->UnlockForProcess(), S_OK);
    const CaptureObject newcomer = initialized(efx);
    board.version = statusLayoutVersion;
  }
  ASSERT_TRUE(service.pingIsAnswered());
  const StatusBlock again = service.block();
  EXPECT_TRUE(IsEqualGUID(again.instance, sound.instance));
  EXPECT_EQ(again.propertyEvent, sound.propertyEvent);
}

// A program that stores a setting while the objects read it, and dies in the middle.
TEST_F(Damage, ASettingHalfWrittenIsSomeSoundAndAWholeOneIsTaken) {
  const ServiceObjects service;
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

// Every local user may signal the events of an object.
TEST_F(Damage, SignalsWithoutEndNeitherStopTheSoundNorTheTeardown) {
  const ServiceObjects service;
  CaptureObject object = playing();
  const KernelHandle reload(
      OpenEventW(EVENT_MODIFY_STATE, FALSE, service.block().propertyEvent.data())),
      ping(OpenEventW(EVENT_MODIFY_STATE, FALSE, pingEventName));
  ASSERT_TRUE(reload && ping);
  const std::jthread storm([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      SetEvent(reload.get());
      SetEvent(ping.get());
    }
  });
  for (int round = 0; round < 50; ++round) EXPECT_TRUE(sounds(object));
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
  const ServiceObjects service;
  CaptureObject object = playing();
  registry.select(L"none");
  registry.writeSetting(L"none", 1, rawCount, [](unsigned) { return 0.0F; });
  service.signalReload();
  EXPECT_TRUE(comesToEffects(object, 0));  // its setting still reaches it
}

}  // namespace
}  // namespace vellumic::test
