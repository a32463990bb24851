// Endpoint identity, volume and loopback against doubles of the device interfaces.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <thread>

#include "control/HandleEndpoint.h"
#include "control/HandleVolumeNotification.h"
#include "control/WasapiLoopback.h"
#include "engine/Arena.h"
#include "engine/FrameEngine.h"
#include "tests/control/DeviceDoubles.h"
#include "tests/control/ImportHooks.h"

namespace vellumic::test {
namespace {

constexpr wchar_t microphoneGuid[] = L"{11111111-2222-3333-4444-555555555555}";
constexpr wchar_t otherGuid[] = L"{99999999-2222-3333-4444-555555555555}";
constexpr DWORD guidProperty = 4, jackProperty = 8;

float gain(float decibels) { return std::pow(10.0F, decibels / 20.0F); }

class Devices : public testing::Test {
 protected:
  Devices() {
    for (FakeDevice* device : {&other, &microphone})
      system.captureEndpoints.devices.push_back(device);
    microphone.id = L"mic";
    other.id = L"other";
    microphone.store.texts[guidProperty] = microphoneGuid;
    other.store.texts[guidProperty] = otherGuid;
    system.defaultRender = &speaker;
  }
  void TearDown() override {
    EXPECT_EQ(microphone.allReferences() + other.allReferences() + speaker.allReferences(), 0U);
    EXPECT_EQ(system.references + system.captureEndpoints.references, 0U);
  }
  FakeSystem system;
  FakeDevice microphone, other, speaker;
};

class EndpointIdentity : public Devices {
 protected:
  HRESULT identify(unsigned deviceIndex = 0) {
    return endpoint.identify(&system.captureEndpoints, &microphone.store, deviceIndex);
  }
  CHandleEndpoint endpoint;
};

TEST_F(EndpointIdentity, LastMatchGivesTheDeviceId) {
  other.store.texts[guidProperty] = L"{11111111-2222-3333-4444-555555555555}";
  ASSERT_EQ(identify(1), S_OK);
  EXPECT_EQ(endpoint.deviceIdString, L"mic");
  EXPECT_EQ(endpoint.matchingEndpointCount, 2U);
  EXPECT_EQ(endpoint.jackSubTypeString, microphoneGuid);  // no jack sub type of its own
  StatusBlock block{};
  endpoint.describe(block);
  EXPECT_EQ(block.endpoint.Data1, 0x11111111U);
  EXPECT_EQ(block.deviceIdPresent, 1);
  EXPECT_STREQ(block.deviceId.data(), L"mic");

  microphone.tellsId = false;  // going away: the match before it stays
  ASSERT_EQ(identify(1), S_OK);
  EXPECT_EQ(endpoint.deviceIdString, L"other");
  EXPECT_EQ(endpoint.matchingEndpointCount, 1U);
}

TEST_F(EndpointIdentity, NoMatchIsASuccessWithoutAnId) {
  FakeStore number, malformed;
  number.numbers[guidProperty] = 7;
  malformed.texts[guidProperty] = L"{not a guid}";
  malformed.texts[jackProperty] = L"{jack}";
  for (FakeStore* store : {&number, &malformed}) {
    ASSERT_EQ(endpoint.identify(&system.captureEndpoints, store, 0), S_OK);
    EXPECT_TRUE(endpoint.deviceIdString.empty());
    StatusBlock block{};
    endpoint.describe(block);
    EXPECT_EQ(block.deviceIdPresent, 0);
  }
  EXPECT_EQ(endpoint.jackSubTypeString, L"{jack}");
  microphone.tellsId = false;
  ASSERT_EQ(identify(), S_OK);
  EXPECT_EQ(endpoint.matchingEndpointCount, 0U);
}

TEST_F(EndpointIdentity, FailuresLeaveNothing) {
  EXPECT_EQ(endpoint.identify(nullptr, &microphone.store, 0), E_INVALIDARG);
  EXPECT_EQ(endpoint.identify(&system.captureEndpoints, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(identify(2), E_FAIL);
  FakeCollection empty;
  EXPECT_EQ(endpoint.identify(&empty, &microphone.store, 0), E_FAIL);
  system.available = false;
  EXPECT_EQ(identify(), E_FAIL);
  EXPECT_TRUE(endpoint.endpointGuidString.empty());
}

class Volume : public Devices {
 protected:
  Volume() {
    EXPECT_TRUE(sets.allocate());
    sets.initialize(ProcessingMode::standard, EffectMode::array);
  }
  void TearDown() override {
    notification.clear();
    Devices::TearDown();
  }
  bool add() {
    return notification.add([this](std::wstring id) { renewVolumes(notification, id, sets); },
                            effects.get(), microphone.id);
  }
  void expectVolumes(float master, float first, float second) {
    for (float* image : {sets.currentImage().span().data(), sets.pendingImage().span().data()}) {
      EXPECT_FLOAT_EQ(loadVolumes(image).master, master);
      EXPECT_FLOAT_EQ(loadVolumes(image).first, first);
      EXPECT_FLOAT_EQ(loadVolumes(image).second, second);
    }
  }
  bool effectsTold() { return WaitForSingleObject(effects.get(), 0) == WAIT_OBJECT_0; }

  Arena arena;
  LockBlock lockBlock;
  FrameEngine engine{LoopbackOpener{}};
  ParameterSets sets{arena, engine, lockBlock};
  KernelHandle effects{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  CHandleVolumeNotification notification;
};

TEST_F(Volume, NotificationsFollowMuteAndMasterButNotAChannelAlone) {
  const int handles = openObjects().handles;
  ASSERT_TRUE(add());
  sets.setVolumes(notification.volumes(L"mic"));
  expectVolumes(gain(-6), gain(-3), gain(-12));
  FakeVolume& volume = microphone.volume;

  volume.channelDb = {-20.0F, -30.0F};
  EXPECT_EQ(volume.notify(), S_OK);
  expectVolumes(gain(-6), gain(-3), gain(-12));
  EXPECT_FALSE(effectsTold());

  volume.muted = true;
  EXPECT_EQ(volume.notify(), S_OK);
  expectVolumes(0, 0, 0);
  EXPECT_TRUE(effectsTold());
  volume.muted = false;
  EXPECT_EQ(volume.notify(), S_OK);
  expectVolumes(gain(-6), gain(-3), gain(-12));

  volume.masterScalar = 0.0F;
  volume.masterDb = -120.0F;
  EXPECT_EQ(volume.notify(), S_OK);
  expectVolumes(1e-5F, gain(-20), gain(-30));

  volume.masterScalar = 0.7F;
  volume.masterDb = -1.0F;
  volume.failing = "channel";
  EXPECT_EQ(volume.notify(), E_ACCESSDENIED);
  expectVolumes(1e-5F, gain(-20), gain(-30));
  EXPECT_TRUE(effectsTold());  // of the change before
  volume.failing.clear();
  EXPECT_EQ(volume.notify(), S_OK);  // the new master is stored already: nothing changed
  expectVolumes(1e-5F, gain(-20), gain(-30));

  notification.clear();
  EXPECT_TRUE(volume.callbacks.empty());
  EXPECT_EQ(openObjects().handles, handles);
}

TEST_F(Volume, MonoEndpointMovesTheMasterOnly) {
  microphone.volume.channelDb = {-9.0F};
  ASSERT_TRUE(add());
  sets.setVolumes(notification.volumes(L"mic"));
  expectVolumes(gain(-6), gain(-9), 1.0F);
  microphone.volume.masterScalar = 0.6F;
  microphone.volume.masterDb = -2.0F;
  microphone.volume.channelDb = {-1.0F};
  EXPECT_EQ(microphone.volume.notify(), S_OK);
  expectVolumes(gain(-2), gain(-9), 1.0F);
  microphone.volume.masterScalar = 0.4F;
  EXPECT_EQ(microphone.volume.notify(), S_OK);
  EXPECT_EQ(microphone.volume.references, 2U);  // registered with, and one kept for refreshes
}

TEST_F(Volume, WithoutAFirstMuteStateOnlyTheMasterIsFollowed) {
  microphone.volume.failing = "mute";
  ASSERT_TRUE(add());
  sets.setVolumes(notification.volumes(L"mic"));
  microphone.volume.failing.clear();
  EXPECT_EQ(microphone.volume.notify(), S_OK);
  expectVolumes(gain(-6), 1.0F, 1.0F);
}

TEST_F(Volume, WhatCannotBeReadDecidesWhatTheLockSees) {
  struct Case {
    const char* failing;
    float gain;
    std::size_t channels;
  };
  for (const Case& test : {Case{"mute", 1.0F, 0},
                           {"range", 1e-5F, 0},
                           {"channels", 1e-5F, 0},
                           {"master", 1e-5F, 0},
                           {"master scalar", 1e-5F, 0},
                           {"channel", 1e-5F, 0},
                           {"channel scalar", 1e-5F, 0},
                           {"", gain(-6), 2}}) {
    SCOPED_TRACE(test.failing);
    microphone.volume.failing = test.failing;
    EXPECT_TRUE(add());
    EXPECT_FLOAT_EQ(notification.volumes(L"mic").master, test.gain);
    EXPECT_EQ(notification.channelCount(L"mic"), test.channels);
    notification.clear();
    EXPECT_TRUE(microphone.volume.callbacks.empty());
  }
  microphone.activates = false;
  EXPECT_TRUE(add());
  EXPECT_EQ(notification.volumes(L"mic").master, 1.0F);
  EXPECT_EQ(notification.masterGain(L"unknown"), unknownLevel);
  system.available = false;
  EXPECT_FALSE(add());
}

TEST_F(Volume, SecondLockKeepsTheFirstRegistration) {
  ASSERT_TRUE(add());
  auto* const first = microphone.volume.callbacks.at(0);
  ASSERT_TRUE(add());
  ASSERT_EQ(microphone.volume.callbacks.size(), 1U);
  EXPECT_EQ(microphone.volume.callbacks[0], first);
}

TEST_F(Volume, LongDeviceIdCutsTheEventsNameOnly) {
  microphone.id = std::wstring(300, L'i');
  ASSERT_TRUE(add());
  EXPECT_EQ(notification.channelCount(microphone.id), 2U);
  const auto name = L"Global\\VellumicAPOVolumeChangeEvent" + std::wstring(220, L'i');
  const KernelHandle event(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
  ASSERT_TRUE(event);
  microphone.volume.muted = true;
  microphone.volume.notify();
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
}

TEST_F(Volume, UnregisteringWaitsForANotificationWithoutDeadlock) {
  std::atomic<bool> notifying{false}, handled{false};
  ASSERT_TRUE(notification.add(
      [&](std::wstring id) {
        notifying = true;
        Sleep(50);
        renewVolumes(notification, id, sets);  // finds its levels though clear() waits
        handled = true;
      },
      nullptr, L"mic"));
  std::thread service([&] {
    microphone.volume.masterScalar = 0.6F;
    microphone.volume.notify();
  });
  microphone.volume.onUnregister = [&] {
    service.join();  // the audio service lets no notification outlive the registration
    EXPECT_TRUE(handled);
  };
  while (!notifying) Sleep(1);
  notification.clear();
  EXPECT_FALSE(service.joinable());
  expectVolumes(gain(-6), gain(-3), gain(-12));
}

TEST_F(Devices, LoopbackPassesPacketsOnAndClosesEverything) {
  speaker.client.capture.packets = {{{0.5F, -0.5F, 0.25F, -0.25F}}, {{0, 0}, 2}};
  const auto source = openWasapiLoopback();
  ASSERT_TRUE(source && source->start());
  EXPECT_EQ(speaker.client.flags, static_cast<DWORD>(AUDCLNT_STREAMFLAGS_LOOPBACK));
  EXPECT_EQ(source->mixFormat().channels, 2);
  EXPECT_EQ(source->mixFormat().sampleRate, 48000);
  Packet packet;
  EXPECT_EQ(source->nextPacketSize(), 2U);
  ASSERT_TRUE(source->get(packet));
  EXPECT_EQ(packet.samples[3], -0.25F);
  EXPECT_FALSE(packet.silent);
  source->release(packet.frames);
  ASSERT_TRUE(source->get(packet));
  EXPECT_TRUE(packet.silent);
  source->release(packet.frames);
  EXPECT_FALSE(source->get(packet));
  EXPECT_EQ(source->nextPacketSize(), 0U);
  speaker.client.capture.broken = true;
  EXPECT_EQ(source->nextPacketSize(), std::nullopt);
}

TEST_F(Devices, LoopbackThatCannotOpenIsNull) {
  for (const char* failing :
       {"initialize", "buffer size", "empty buffer", "mix format", "service"}) {
    speaker.client.failing = failing;
    EXPECT_FALSE(openWasapiLoopback()) << failing;
  }
  speaker.client.failing = "start";
  EXPECT_FALSE(openWasapiLoopback()->start());
  speaker.client.failing.clear();
  speaker.client.mix.nBlockAlign = 4;  // 16-bit samples
  EXPECT_FALSE(openWasapiLoopback());
  speaker.activates = false;
  EXPECT_FALSE(openWasapiLoopback());
  system.defaultRender = nullptr;
  EXPECT_FALSE(openWasapiLoopback());
  EXPECT_EQ(speaker.client.started, 0);
}

}  // namespace
}  // namespace vellumic::test
