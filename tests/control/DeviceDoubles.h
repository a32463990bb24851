// Audio devices made of plain fields, behind the system's own interfaces.
//
// While a FakeSystem lives, CoCreateInstance of the device enumerator gives its enumerator to the
// unmodified code, on every thread of the multithreaded apartment. Doubles refuse arguments that
// the code under test has no reason to pass.
#pragma once

#include <windows.h>

#include <audioclient.h>
#include <endpointvolume.h>
#include <gtest/gtest.h>
#include <mmdeviceapi.h>
#include <propsys.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "control/ComPtr.h"
#include "control/DeviceProperties.h"

namespace vellumic::test {

#define UNUSED_METHOD(name, ...) \
  HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) override { return E_NOTIMPL; }

// Whether the next call to any double fails that can, on whatever thread.
inline bool (*deviceCallFails)() = [] { return false; };

// An interface whose counts are kept but never free: the double belongs to its test.
template <class Interface>
class Double : public Interface {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const bool known = IsEqualIID(id, __uuidof(Interface)) || IsEqualIID(id, __uuidof(IUnknown));
    *object = known ? this : nullptr;
    if (!known) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override {
    if (onRelease) onRelease();
    return --references;
  }
  std::atomic<ULONG> references{0};  // held by the code under test
  std::string failing;               // what cannot be asked for
  std::function<void()> onRelease;

 protected:
  HRESULT resultOf(const char* name, HRESULT failure = E_ACCESSDENIED) const {
    return failing == name || deviceCallFails() ? failure : S_OK;
  }
  template <class Value, class Given>
  HRESULT give(const char* name, Value* value, Given given, HRESULT failure = E_ACCESSDENIED) {
    *value = static_cast<Value>(given);
    return resultOf(name, failure);
  }
  // A double with a count for the caller, or a failure without one. A call that is `failing` gives
  // it all the same; "no NAME" succeeds and gives nothing.
  template <class Given>
  HRESULT handOut(const std::string& name, Double<Given>* found, Given** object,
                  HRESULT failure = E_INVALIDARG) {
    *object = nullptr;
    if (found == nullptr || deviceCallFails()) return failure;
    if (failing == "no " + name) return S_OK;
    *object = found;
    found->AddRef();
    return failing == name ? failure : S_OK;
  }
};

inline wchar_t* taskText(const std::wstring& text) {
  auto* const copy = static_cast<wchar_t*>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
  std::copy_n(text.c_str(), text.size() + 1, copy);
  return copy;
}

class FakeStore : public Double<IPropertyStore> {
 public:
  // By property id: 4 and 8 of the endpoint's set, 14 of the device's.
  std::map<DWORD, std::wstring> texts;
  bool numbers = false;  // in place of texts

  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    constexpr GUID endpointSet{
        0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}};
    PropVariantInit(value);
    if (deviceCallFails()) return E_ACCESSDENIED;
    if (key.pid != 14 && !IsEqualGUID(key.fmtid, endpointSet)) return E_INVALIDARG;
    if (numbers) {
      value->vt = VT_UI4;
      value->ulVal = 7;
    } else if (const auto text = texts.find(key.pid); text != texts.end()) {
      value->vt = VT_LPWSTR;
      value->pwszVal = taskText(text->second);
    }
    return S_OK;
  }
  UNUSED_METHOD(GetCount, DWORD*)
  UNUSED_METHOD(GetAt, DWORD, PROPERTYKEY*)
  UNUSED_METHOD(SetValue, REFPROPERTYKEY, REFPROPVARIANT)
  UNUSED_METHOD(Commit)
};

class FakeVolume : public Double<IAudioEndpointVolume> {
 public:
  bool muted = false;
  float masterDb = -6.0F, masterScalar = 0.5F;
  std::vector<float> channelDb = {-3.0F, -12.0F};
  std::function<void()> onUnregister;
  std::vector<IAudioEndpointVolumeCallback*> callbacks;

  // As the audio service does, on a thread of its own if wanted.
  HRESULT notify() {
    AUDIO_VOLUME_NOTIFICATION_DATA data = {};
    data.bMuted = muted;
    data.fMasterVolume = masterScalar;
    HRESULT result = S_FALSE;
    for (auto* callback : std::vector(callbacks)) result = callback->OnNotify(&data);
    return result;
  }

  HRESULT STDMETHODCALLTYPE
  RegisterControlChangeNotify(IAudioEndpointVolumeCallback* callback) override {
    if (deviceCallFails()) return E_ACCESSDENIED;
    callback->AddRef();
    const std::scoped_lock lock(callbacksMutex_);
    callbacks.push_back(callback);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE
  UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* callback) override {
    if (onUnregister) onUnregister();
    const std::scoped_lock lock(callbacksMutex_);
    if (std::erase(callbacks, callback) != 1) return E_INVALIDARG;
    callback->Release();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* count) override {
    return give("channels", count, static_cast<UINT>(channelDb.size()));
  }
  HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(FLOAT* level) override {
    return give("master", level, masterDb);
  }
  HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(FLOAT* level) override {
    return give("master scalar", level, masterScalar);
  }
  HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT channel, FLOAT* level) override {
    return channel < channelDb.size() ? give("channel", level, channelDb[channel]) : E_INVALIDARG;
  }
  HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT channel, FLOAT* level) override {
    return channel < channelDb.size() ? give("channel scalar", level, -channelDb[channel] / 64.0F)
                                      : E_INVALIDARG;
  }
  HRESULT STDMETHODCALLTYPE GetMute(WINBOOL* mute) override { return give("mute", mute, muted); }
  HRESULT STDMETHODCALLTYPE GetVolumeRange(FLOAT* low, FLOAT*, FLOAT*) override {
    return give("range", low, -96.0F);
  }
  UNUSED_METHOD(SetMasterVolumeLevel, FLOAT, LPCGUID)
  UNUSED_METHOD(SetMasterVolumeLevelScalar, FLOAT, LPCGUID)
  UNUSED_METHOD(SetChannelVolumeLevel, UINT, FLOAT, LPCGUID)
  UNUSED_METHOD(SetChannelVolumeLevelScalar, UINT, FLOAT, LPCGUID)
  UNUSED_METHOD(SetMute, WINBOOL, LPCGUID)
  UNUSED_METHOD(GetVolumeStepInfo, UINT*, UINT*)
  UNUSED_METHOD(VolumeStepUp, LPCGUID)
  UNUSED_METHOD(VolumeStepDown, LPCGUID)
  UNUSED_METHOD(QueryHardwareSupport, DWORD*)

 private:
  std::mutex callbacksMutex_;  // objects of several threads come and go
};

struct FakePacket {
  std::vector<float> samples;  // interleaved, of two channels
  DWORD flags = 0;
};

class FakeCapture : public Double<IAudioCaptureClient> {
 public:
  std::vector<FakePacket> packets;  // first one next

  HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override {
    return give("packets", frames, packets.empty() ? 0 : framesOf(packets.front()),
                AUDCLNT_E_DEVICE_INVALIDATED);
  }
  HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64*,
                                      UINT64*) override {
    if (resultOf("packets") != S_OK) return AUDCLNT_E_DEVICE_INVALIDATED;
    if (packets.empty()) return AUDCLNT_S_BUFFER_EMPTY;
    FakePacket& packet = packets.front();
    *data = reinterpret_cast<BYTE*>(packet.samples.data());
    *frames = framesOf(packet);
    *flags = packet.flags;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override {
    if (packets.empty() || frames != framesOf(packets.front())) return E_INVALIDARG;
    packets.erase(packets.begin());
    return S_OK;
  }

 private:
  static UINT32 framesOf(const FakePacket& packet) {
    return static_cast<UINT32>(packet.samples.size()) / 2;
  }
};

class FakeClient : public Double<IAudioClient> {
 public:
  FakeCapture capture;
  WAVEFORMATEX mix = {WAVE_FORMAT_EXTENSIBLE, 2, 48000, 384000, 8, 32, 0};
  int started = 0;

  // A shared stream of the mix format: a loopback with a buffer of a second, or a capture's.
  HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE share, DWORD flags,
                                       REFERENCE_TIME duration, REFERENCE_TIME period,
                                       const WAVEFORMATEX* format, LPCGUID session) override {
    const bool loopback = (flags & AUDCLNT_STREAMFLAGS_LOOPBACK) != 0;
    if (share != AUDCLNT_SHAREMODE_SHARED || period != 0 || session != nullptr ||
        format->nChannels != mix.nChannels || format->nSamplesPerSec != mix.nSamplesPerSec ||
        (loopback && (flags != 0x20000 || duration != 10'000'000)))
      return E_INVALIDARG;
    return resultOf("initialize");
  }
  HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
    return give("buffer size", frames, failing == "empty buffer" ? 0 : 48000);
  }
  HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
    *format = nullptr;
    if (resultOf("mix format") != S_OK) return E_ACCESSDENIED;
    *format = static_cast<WAVEFORMATEX*>(CoTaskMemAlloc(sizeof mix));
    **format = mix;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Start() override {
    if (started != 0) return AUDCLNT_E_NOT_STOPPED;
    const HRESULT result = resultOf("start");
    started += result == S_OK ? 1 : 0;
    return result;
  }
  HRESULT STDMETHODCALLTYPE Stop() override {
    --started;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetService(REFIID id, void** service) override {
    return resultOf("service") == S_OK ? capture.QueryInterface(id, service) : E_ACCESSDENIED;
  }
  UNUSED_METHOD(GetStreamLatency, REFERENCE_TIME*)
  UNUSED_METHOD(GetCurrentPadding, UINT32*)
  UNUSED_METHOD(IsFormatSupported, AUDCLNT_SHAREMODE, const WAVEFORMATEX*, WAVEFORMATEX**)
  UNUSED_METHOD(GetDevicePeriod, REFERENCE_TIME*, REFERENCE_TIME*)
  UNUSED_METHOD(Reset)
};

class FakeDevice : public Double<IMMDevice> {
 public:
  explicit FakeDevice(const wchar_t* ownId = L"", const wchar_t* guid = nullptr) : id(ownId) {
    if (guid != nullptr) store.texts[4] = guid;
  }
  std::wstring id;
  FakeStore store;
  FakeVolume volume;
  FakeClient client;
  DWORD state = DEVICE_STATE_ACTIVE;
  std::function<void()> onActivate;

  HRESULT STDMETHODCALLTYPE Activate(REFIID wanted, DWORD context, PROPVARIANT* parameters,
                                     void** object) override {
    *object = nullptr;
    if (onActivate) onActivate();
    if (resultOf("activate") != S_OK) return E_ACCESSDENIED;
    if (context != CLSCTX_ALL || parameters != nullptr) return E_INVALIDARG;
    if (IsEqualIID(wanted, __uuidof(IAudioClient))) return client.QueryInterface(wanted, object);
    return volume.QueryInterface(wanted, object);
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore** opened) override {
    return handOut<IPropertyStore>("store", access == STGM_READ ? &store : nullptr, opened);
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* text) override {
    *text = failing == "no id" ? nullptr : taskText(id);  // also where it fails
    return resultOf("id", AUDCLNT_E_DEVICE_INVALIDATED);
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* now) override { return give("state", now, state); }
  ULONG allReferences() const {
    return references + store.references + volume.references + client.references +
           client.capture.references;
  }
};

class FakeCollection : public Double<IMMDeviceCollection> {
 public:
  std::vector<FakeDevice*> devices;
  std::function<void()> onCount;

  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
    if (onCount) onCount();
    return give("count", count, devices.size());
  }
  HRESULT STDMETHODCALLTYPE Item(UINT position, IMMDevice** device) override {
    return handOut<IMMDevice>("item", position < devices.size() ? devices[position] : nullptr,
                              device);
  }
};

class FakeSystem : public Double<IMMDeviceEnumerator> {
 public:
  FakeCollection captureEndpoints;
  FakeDevice* defaultRender = nullptr;

  ULONG allReferences() const {
    return references + captureEndpoints.references + enumerated_.references;
  }

  FakeSystem() {
    CoIncrementMTAUsage(&apartment_);
    CoRegisterClassObject(__uuidof(MMDeviceEnumerator), &factory_, CLSCTX_INPROC_SERVER,
                          REGCLS_MULTIPLEUSE, &registration_);
  }
  ~FakeSystem() {
    CoRevokeClassObject(registration_);
    CoDecrementMTAUsage(apartment_);
  }

  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD states,
                                               IMMDeviceCollection** devices) override {
    enumerated_.devices = captureEndpoints.devices;
    std::erase_if(enumerated_.devices,
                  [=](const FakeDevice* device) { return (device->state & states) == 0; });
    return handOut<IMMDeviceCollection>("endpoints", flow == eCapture ? &enumerated_ : nullptr,
                                        devices);
  }
  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                    IMMDevice** device) override {
    return handOut<IMMDevice>(
        "default", flow == eRender && role == eConsole ? defaultRender : nullptr, device, notFound);
  }
  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
    const auto& all = captureEndpoints.devices;
    const auto found = std::ranges::find(all, std::wstring(id), &FakeDevice::id);
    return handOut<IMMDevice>("device", found != all.end() ? *found : nullptr, device, notFound);
  }
  UNUSED_METHOD(RegisterEndpointNotificationCallback, IMMNotificationClient*)
  UNUSED_METHOD(UnregisterEndpointNotificationCallback, IMMNotificationClient*)

 private:
  class Factory : public Double<IClassFactory> {
   public:
    explicit Factory(FakeSystem& system) : system_(system) {}
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID id, void** object) override {
      *object = nullptr;
      return system_.failing == "create" ? E_OUTOFMEMORY : system_.QueryInterface(id, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(WINBOOL) override { return S_OK; }

   private:
    FakeSystem& system_;
  };
  static constexpr HRESULT notFound = static_cast<HRESULT>(0x80070490);
  FakeCollection enumerated_;  // of the latest enumeration
  Factory factory_{*this};
  DWORD registration_ = 0;
  CO_MTA_USAGE_COOKIE apartment_ = nullptr;
};

// Three capture devices, the endpoint last and the only match, and a loudspeaker. Who uses them
// gives every reference back.
class FakeMachine : public testing::Test {
 protected:
  FakeMachine() { system.captureEndpoints.devices = {&filter, &other, &microphone}; }
  void TearDown() override {
    for (const FakeDevice* device : {&filter, &other, &microphone, &speaker})
      EXPECT_EQ(device->allReferences(), 0U);
    EXPECT_EQ(system.allReferences(), 0U);
  }
  FakeSystem system;
  FakeDevice filter{L"filter"}, other{L"other", L"{99999999-2222-3333-4444-555555555555}"},
      microphone{L"microphone", L"{11111111-2222-3333-4444-555555555555}"}, speaker;
};

#undef UNUSED_METHOD

}  // namespace vellumic::test
