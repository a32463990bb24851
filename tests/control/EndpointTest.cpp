// Endpoint identity, volume and loopback against doubles of the device interfaces.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <thread>

#include "control/HandleEndpoint.h"
#include "control/HandleVolumeNotification.h"
#include "control/WasapiLoopback.h"
#include "engine/Arena.h"
#include "engine/FrameEngine.h"
#include "tests/control/DeviceDoubles.h"

namespace vellumic::test {
namespace {

constexpr wchar_t microphoneGuid[] = L"{11111111-2222-3333-4444-555555555555}";
constexpr DWORD guidProperty = 4, jackProperty = 8;

float gain(float decibels) { return std::pow(10.0F, decibels / 20.0F); }

class Devices : public FakeMachine {
 protected:
  Devices() { system.defaultRender = &speaker; }
};

TEST_F(Devices, LastActiveMatchGivesTheEndpointsId) {
  CHandleEndpoint endpoint;
  const auto expectFound = [&](FakeStore& store, const wchar_t* id, std::uint32_t count) {
    ASSERT_EQ(endpoint.identify(&system.captureEndpoints, &store, 1), S_OK);
    StatusBlock block{};
    block.deviceIdPresent = 7;
    endpoint.describe(block);
    EXPECT_EQ(block.deviceIdPresent, count != 0 ? 1 : 0);
    EXPECT_EQ(endpoint.deviceIdString, id);
    EXPECT_EQ(endpoint.matchingEndpointCount, count);
  };
  FakeStore number, malformed, unclosed;
  number.numbers = true;
  malformed.texts[guidProperty] = L"{not a guid}";
  malformed.texts[jackProperty] = L"{jack}";
  expectFound(number, L"", 0);
  expectFound(malformed, L"", 0);
  EXPECT_EQ(endpoint.jackSubTypeString, L"{jack}");
  unclosed.texts[guidProperty] = std::wstring(microphoneGuid).substr(0, 37);
  expectFound(unclosed, L"microphone", 1);  // the last brace is not looked at
  expectFound(microphone.store, L"microphone", 1);
  EXPECT_EQ(endpoint.endpointGuidString, microphoneGuid);
  EXPECT_EQ(endpoint.jackSubTypeString, microphoneGuid);  // no jack sub type of its own
  other.store.texts[guidProperty] = microphoneGuid;
  expectFound(microphone.store, L"microphone", 2);
  for (const char* failing : {"id", "no id", "store", "no store"}) {
    microphone.failing = failing;  // going away: the match before it stays
    expectFound(microphone.store, L"other", 1);
  }
  for (const auto& [failing, name] : {std::pair(&system.failing, "create"),
                                      {&system.failing, "endpoints"},
                                      {&system.failing, "no endpoints"},
                                      {&system.captureEndpoints.failing, "item"},
                                      {&system.captureEndpoints.failing, "no item"},
                                      {&system.captureEndpoints.failing, "count"}}) {
    *failing = name;
    EXPECT_EQ(endpoint.identify(&system.captureEndpoints, &microphone.store, 1), E_FAIL) << name;
    EXPECT_EQ(endpoint.deviceIdString, L"");  // a failure leaves nothing
    failing->clear();
    expectFound(microphone.store, L"other", 1);
  }
  EXPECT_EQ(endpoint.identify(&system.captureEndpoints, nullptr, 1), E_INVALIDARG);
  EXPECT_EQ(endpoint.deviceIdString, L"");
  other.state = DEVICE_STATE_UNPLUGGED;
  expectFound(microphone.store, L"", 0);
}

class Volume : public Devices {
 protected:
  Volume() {
    EXPECT_TRUE(sets.allocate());
    sets.initialize(ProcessingMode::standard, EffectMode::array);
  }
  void TearDown() override {
    notification.clear();
    EXPECT_TRUE(microphone.volume.callbacks.empty());
    Devices::TearDown();
  }
  bool add() {
    return notification.add([this](std::wstring id) { renewVolumes(notification, id, sets); },
                            effects.get(), microphone.id);
  }
  void addAndTake() {
    ASSERT_TRUE(add());
    sets.setVolumes(notification.volumes(microphone.id));
  }
  HRESULT change(float scalar) {
    microphone.volume.masterScalar = scalar;
    return microphone.volume.notify();
  }
  void expectVolumes(float master, float first, float second) {
    for (float* image : {sets.currentImage().span().data(), sets.pendingImage().span().data()}) {
      EXPECT_FLOAT_EQ(loadVolumes(image).master, master);
      EXPECT_FLOAT_EQ(loadVolumes(image).first, first);
      EXPECT_FLOAT_EQ(loadVolumes(image).second, second);
    }
  }

  Arena arena;
  LockBlock lockBlock;
  FrameEngine engine{LoopbackOpener{}};
  ParameterSets sets{arena, engine, lockBlock};
  KernelHandle effects{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  CHandleVolumeNotification notification;
};

TEST_F(Volume, NotificationsFollowMuteAndMasterButNotAChannelAlone) {
  struct Change {
    float scalar, masterDb;
    bool muted;
    std::vector<float> channels;
    const char* failing;
    HRESULT answer;
    std::array<float, 3> seen;  // dB: master, first, second
    bool told;
  };
  constexpr float silence = -INFINITY;
  addAndTake();
  expectVolumes(gain(-6), gain(-3), gain(-12));
  FakeVolume& volume = microphone.volume;
  for (const Change& change : {
           Change{0.5F, -6, false, {-20, -30}, "", S_OK, {-6, -3, -12}, false},
           {0.5F, -6, true, {-20, -30}, "", S_OK, {silence, silence, silence}, true},
           {0.5F, -6, false, {-20, -30}, "", S_OK, {-6, -3, -12}, true},
           {0.0F, -120, false, {-20, -30}, "", S_OK, {-100, -20, -30}, true},
           {0.7F, -1, false, {-20, -30}, "channel", E_ACCESSDENIED, {-100, -20, -30}, false},
           {0.7F, -1, false, {-20, -30}, "", S_OK, {-100, -20, -30}, false},  // stored already
           {0.8F, -2, false, {-120, -130, -9}, "", S_OK, {-2, -100, -100}, true},
       }) {
    volume.masterScalar = change.scalar;
    volume.masterDb = change.masterDb;
    volume.muted = change.muted;
    volume.channelDb = change.channels;  // one more at last than at the lock
    volume.failing = change.failing;
    EXPECT_EQ(volume.notify(), change.answer);
    EXPECT_EQ(notification.isMuted(L"microphone"), change.muted);
    expectVolumes(gain(change.seen[0]), gain(change.seen[1]), gain(change.seen[2]));
    EXPECT_EQ(WaitForSingleObject(effects.get(), 0) == WAIT_OBJECT_0, change.told);
  }
  EXPECT_EQ(volume.callbacks.at(0)->OnNotify(nullptr), E_POINTER);
}

TEST_F(Volume, ACallbackKeepsTheWholeReadingOfAnyStream) {
  const auto callback = ComPtr<_CAudioEndpointVolumeCallback>::attach(
      new _CAudioEndpointVolumeCallback(L"microphone"));
  microphone.volume.channelDb = {-3.0F, -12.0F, -30.0F};
  EXPECT_EQ(callback->takeSnapshot(microphone.volume), S_OK);
  EXPECT_EQ(callback->levels().channelLevelsDb, microphone.volume.channelDb);
  microphone.volume.channelDb.assign(5000, 0.0F);  // no stream has as many
  EXPECT_EQ(callback->takeSnapshot(microphone.volume), S_OK);
  EXPECT_EQ(callback->levels().channelLevelsDb.size(), 4096U);
  ComPtr<IUnknown> same;
  EXPECT_EQ(callback->QueryInterface(__uuidof(IAudioEndpointVolumeCallback), same.putVoid()), S_OK);
  EXPECT_EQ(callback->referenceCount, 2U);
  void* unknown = this;
  EXPECT_EQ(callback->QueryInterface(__uuidof(IAudioEndpointVolume), &unknown), E_NOINTERFACE);
  EXPECT_EQ(unknown, nullptr);
}

TEST_F(Volume, MonoEndpointMovesTheMasterOnly) {
  microphone.volume.channelDb = {-9.0F};
  addAndTake();
  expectVolumes(gain(-6), gain(-9), 1.0F);
  microphone.volume.channelDb = {-1.0F};
  microphone.volume.masterDb = -2.0F;
  for (const float scalar : {0.6F, 0.4F}) EXPECT_EQ(change(scalar), S_OK);
  expectVolumes(gain(-2), gain(-9), 1.0F);
  EXPECT_EQ(microphone.volume.references, 2U);  // registered with, and one kept for refreshes
}

// What an add sees that meets a failure: the gain of the lock, the channels, and whether changes
// are heard of.
TEST_F(Volume, WhatCannotBeReadDecidesWhatTheLockSees) {
  struct Case {
    const char* failing;
    float gain;
    std::size_t channels, callbacks;
  };
  for (const Case& test : {Case{"mute", 1.0F, 0, 1},
                           {"range", 1e-5F, 0, 0},
                           {"master scalar", 1e-5F, 0, 0},
                           {"channel scalar", 1e-5F, 0, 0},
                           {"", gain(-6), 2, 1}}) {
    SCOPED_TRACE(test.failing);
    microphone.volume.failing = test.failing;
    EXPECT_TRUE(add());
    EXPECT_FLOAT_EQ(notification.volumes(L"microphone").master, test.gain);
    EXPECT_EQ(notification.channelCount(L"microphone"), test.channels);
    EXPECT_EQ(microphone.volume.callbacks.size(), test.callbacks);
    notification.clear();
    EXPECT_TRUE(microphone.volume.callbacks.empty());
  }
  microphone.failing = "activate";
  EXPECT_TRUE(add());
  EXPECT_EQ(notification.volumes(L"microphone").master, 1.0F);
  EXPECT_EQ(notification.masterGain(L"?"), 1.17549435e-38F);
  system.failing = "create";
  EXPECT_FALSE(add());
}

TEST_F(Volume, LongDeviceIdCutsTheEventsNameOnlyAndTheFirstRegistrationStays) {
  microphone.id = std::wstring(300, L'i');
  ASSERT_TRUE(add());
  const auto first = microphone.volume.callbacks;
  ASSERT_TRUE(add());
  EXPECT_EQ(microphone.volume.callbacks, first);
  EXPECT_EQ(notification.channelCount(microphone.id), 2U);
  const auto name = L"Global\\VellumicAPOVolumeChangeEvent" + std::wstring(220, L'i');
  const KernelHandle event(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
  ASSERT_TRUE(event);
  microphone.volume.muted = true;
  microphone.volume.notify();
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
  notification.clear();
  ASSERT_TRUE(add());
  EXPECT_TRUE(notification.isMuted(microphone.id));  // from the start
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
      nullptr, L"microphone"));
  std::thread service([&] { change(0.6F); });
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
  speaker.client.capture.packets = {{{0.5F, -0.5F, 0.25F, -0.25F}}, {{0, 0}, 2}, {{0, 0}, 4}};
  auto source = openWasapiLoopback();
  ASSERT_TRUE(source);
  source->stop();  // before it ran: nothing
  EXPECT_TRUE(source->start() && source->start());
  EXPECT_EQ(source->mixFormat().channels, 2);
  EXPECT_EQ(source->mixFormat().sampleRate, 48000);
  Packet packet;
  for (const auto& [silent, frames] : {std::pair(false, 2U), {true, 1U}, {false, 1U}}) {
    EXPECT_EQ(source->nextPacketSize(), frames);
    ASSERT_TRUE(source->get(packet));
    EXPECT_EQ(packet.silent, silent);
    EXPECT_EQ(packet.samples, speaker.client.capture.packets[0].samples.data());
    source->release(packet.frames);
  }
  EXPECT_FALSE(source->get(packet));
  EXPECT_EQ(source->nextPacketSize(), 0U);
  speaker.client.capture.failing = "packets";
  EXPECT_EQ(source->nextPacketSize(), std::nullopt);
  source.reset();
  EXPECT_EQ(speaker.client.started, 0);
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
  const auto opens = [&](WORD channels, DWORD rate, WORD align) {
    speaker.client.mix.nChannels = channels;
    speaker.client.mix.nSamplesPerSec = rate;
    speaker.client.mix.nBlockAlign = align;
    return openWasapiLoopback() != nullptr;
  };
  EXPECT_TRUE(opens(1, 1, 4) && opens(8, 192000, 32));
  EXPECT_FALSE(opens(2, 48000, 4) || opens(0, 48000, 0) || opens(2, 0, 8) ||
               opens(2, 0x80000000, 8));
  EXPECT_TRUE(opens(2, 48000, 8));
  speaker.failing = "activate";
  EXPECT_FALSE(openWasapiLoopback());
  system.defaultRender = nullptr;
  EXPECT_FALSE(openWasapiLoopback());
  EXPECT_EQ(speaker.client.started, 0);
}

}  // namespace
}  // namespace vellumic::test
