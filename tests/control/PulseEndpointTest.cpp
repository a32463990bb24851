// The system's own device interfaces, on the endpoints of scripts/pulse-endpoints.
#include <gtest/gtest.h>

#include <map>

#include "control/HandleEndpoint.h"
#include "control/HandleVolumeNotification.h"
#include "tests/control/DeviceDoubles.h"

namespace vellumic::test {
namespace {

class PulseEndpoints : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    HRESULT result = S_OK;
    enumerator = createDeviceEnumerator(result);
    ASSERT_TRUE(enumerator);
    ASSERT_EQ(enumerator->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, endpoints.put()), S_OK);
    UINT count = 0;
    ASSERT_EQ(endpoints->GetCount(&count), S_OK);
    for (UINT position = 0; position < count; ++position)
      if (const int channels = channelsOf(position); channels != 0) positions[channels] = position;
  }
  void TearDown() override {
    endpoints.reset();
    enumerator.reset();
    CoUninitialize();
  }
  ComPtr<IMMDevice> item(UINT position) {
    ComPtr<IMMDevice> device;
    EXPECT_EQ(endpoints->Item(position, device.put()), S_OK);
    return device;
  }
  int channelsOf(UINT position) {
    ComPtr<IAudioClient> client;
    WAVEFORMATEX* mix = nullptr;
    if (FAILED(item(position)->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                                        client.putVoid())) ||
        FAILED(client->GetMixFormat(&mix)))
      return 0;
    const int channels = mix->nChannels;
    CoTaskMemFree(mix);
    return channels;
  }

  ComPtr<IMMDeviceEnumerator> enumerator;
  ComPtr<IMMDeviceCollection> endpoints;
  std::map<int, UINT> positions;  // by channel count
};

TEST_F(PulseEndpoints, AreIdentifiedByTheirGuid) {
  for (const int channels : {2, 4, 8}) {
    SCOPED_TRACE(channels);
    ASSERT_TRUE(positions.contains(channels));
    const auto device = item(positions[channels]);
    ComPtr<IPropertyStore> store;
    ASSERT_EQ(device->OpenPropertyStore(STGM_READ, store.put()), S_OK);
    CHandleEndpoint endpoint;
    ASSERT_EQ(endpoint.identify(endpoints.get(), store.get(), positions[channels]), S_OK);
    wchar_t* id = nullptr;
    ASSERT_EQ(device->GetId(&id), S_OK);
    EXPECT_EQ(endpoint.deviceIdString, id);
    CoTaskMemFree(id);
    EXPECT_EQ(endpoint.matchingEndpointCount, 1U);
    // An endpoint's id ends with its GUID.
    EXPECT_TRUE(endpoint.deviceIdString.ends_with(endpoint.endpointGuidString));
  }
}

TEST_F(PulseEndpoints, VolumeIsFollowedAsFarAsTheSystemGoes) {
  ASSERT_TRUE(positions.contains(4));
  wchar_t* text = nullptr;
  const auto device = item(positions[4]);
  ASSERT_EQ(device->GetId(&text), S_OK);
  const std::wstring id = text;
  CoTaskMemFree(text);
  ComPtr<IAudioEndpointVolume> control;
  ASSERT_EQ(
      device->Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr, control.putVoid()),
      S_OK);
  UINT channels = 0;
  const bool readable = SUCCEEDED(control->GetChannelCount(&channels));  // not under Wine
  CHandleVolumeNotification notification;
  EXPECT_TRUE(notification.add([](const std::wstring&) {}, nullptr, id));
  EXPECT_EQ(notification.channelCount(id), readable ? channels : 0U);
  if (!readable) {
    EXPECT_EQ(notification.volumes(id).master, ParameterSets::leastVolume);
  }
  EXPECT_TRUE(notification.add([](const std::wstring&) {}, nullptr, L"no such device"));
  EXPECT_EQ(notification.volumes(L"no such device").master, 1.0F);
}

}  // namespace
}  // namespace vellumic::test
