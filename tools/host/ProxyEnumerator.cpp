#include "tools/host/ProxyEnumerator.h"

#include <audioclient.h>
#include <endpointvolume.h>

#include <memory>

#include "tools/host/FixedVolume.h"
#include "tools/host/LoopbackClients.h"

namespace vellumic::tools {
namespace {

struct State {
  ComPtr<IMMDeviceEnumerator> real;
  Replacements replacements;
  std::atomic<bool>& started;

  [[nodiscard]] bool replacesLoopback() const {
    return replacements.far != nullptr || replacements.monitor.device;
  }
  HRESULT openLoopback(void** object) const {
    ComPtr<IAudioClient> client;
    if (replacements.far != nullptr) {
      client = fileLoopback(*replacements.far, *replacements.clock, started);
    } else {
      ComPtr<IAudioClient> microphone;
      const HRESULT result = replacements.monitor.device->Activate(
          __uuidof(IAudioClient), CLSCTX_ALL, nullptr, microphone.putVoid());
      if (FAILED(result)) return result;
      client = monitorLoopback(std::move(microphone), started);
    }
    *object = client.detach();
    return S_OK;
  }
};
using SharedState = std::shared_ptr<const State>;

class Device final : public Counted<IMMDevice> {
 public:
  // `real` may be empty: a loudspeaker that is not there.
  Device(SharedState state, ComPtr<IMMDevice> real, bool loudspeaker)
      : state_(std::move(state)), real_(std::move(real)), loudspeaker_(loudspeaker) {}

  HRESULT STDMETHODCALLTYPE Activate(REFIID id, DWORD context, PROPVARIANT* parameters,
                                     void** object) override {
    *object = nullptr;
    if (loudspeaker_ && IsEqualIID(id, __uuidof(IAudioClient))) return state_->openLoopback(object);
    if (state_->replacements.volume && IsEqualIID(id, __uuidof(IAudioEndpointVolume))) {
      *object = fixedVolume(*state_->replacements.volume).detach();
      return S_OK;
    }
    return real_ ? real_->Activate(id, context, parameters, object) : E_NOINTERFACE;
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore** store) override {
    return real_ ? real_->OpenPropertyStore(access, store) : E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* text) override {
    return real_ ? real_->GetId(text) : E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
    return real_ ? real_->GetState(state) : E_NOTIMPL;
  }

 private:
  SharedState state_;
  ComPtr<IMMDevice> real_;
  bool loudspeaker_;
};

class Enumerator final : public Counted<IMMDeviceEnumerator> {
 public:
  explicit Enumerator(SharedState state) : state_(std::move(state)) {}

  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD states,
                                               IMMDeviceCollection** devices) override {
    return state_->real->EnumAudioEndpoints(flow, states, devices);
  }
  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                    IMMDevice** device) override {
    *device = nullptr;
    ComPtr<IMMDevice> real;
    const HRESULT result = state_->real->GetDefaultAudioEndpoint(flow, role, real.put());
    const bool loudspeaker = flow == eRender && state_->replacesLoopback();
    if (FAILED(result) && !loudspeaker) return result;
    *device = new Device(state_, std::move(real), loudspeaker);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
    *device = nullptr;
    ComPtr<IMMDevice> real;
    const HRESULT result = state_->real->GetDevice(id, real.put());
    if (SUCCEEDED(result)) *device = new Device(state_, std::move(real), false);
    return result;
  }
  HRESULT STDMETHODCALLTYPE
  RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    return state_->real->RegisterEndpointNotificationCallback(client);
  }
  HRESULT STDMETHODCALLTYPE
  UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    return state_->real->UnregisterEndpointNotificationCallback(client);
  }

 private:
  SharedState state_;
};

class Factory final : public Counted<IClassFactory> {
 public:
  explicit Factory(SharedState state) : state_(std::move(state)) {}
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override {
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    return make<Enumerator>(state_)->QueryInterface(id, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(WINBOOL) override { return S_OK; }

 private:
  SharedState state_;
};

}  // namespace

ProxyEnumerator::ProxyEnumerator(ComPtr<IMMDeviceEnumerator> real, Replacements replacements) {
  const auto state =
      std::make_shared<const State>(State{std::move(real), std::move(replacements), started_});
  check(CoRegisterClassObject(__uuidof(MMDeviceEnumerator), make<Factory>(state).get(),
                              CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &registration_),
        "cannot stand before the sound devices");
}

ProxyEnumerator::~ProxyEnumerator() { CoRevokeClassObject(registration_); }

bool ProxyEnumerator::waitForLoopback(DWORD milliseconds) const {
  constexpr DWORD step = 10, handOver = 50;
  for (DWORD waited = 0; !started_; waited += step) {
    if (waited >= milliseconds) return false;
    Sleep(step);
  }
  Sleep(handOver);  // the effect's helper thread passes the started stream on
  return true;
}

bool hasChannelVolumes(const Endpoint& endpoint) {
  ComPtr<IAudioEndpointVolume> control;
  UINT channels = 0;
  return SUCCEEDED(endpoint.device->Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr,
                                             control.putVoid())) &&
         SUCCEEDED(control->GetChannelCount(&channels));
}

bool hasLoopback(IMMDeviceEnumerator& enumerator) {
  ComPtr<IMMDevice> loudspeaker;
  ComPtr<IAudioClient> client;
  ComPtr<IAudioCaptureClient> capture;
  WAVEFORMATEX* mix = nullptr;
  if (FAILED(enumerator.GetDefaultAudioEndpoint(eRender, eConsole, loudspeaker.put())) ||
      FAILED(
          loudspeaker->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.putVoid())) ||
      FAILED(client->GetMixFormat(&mix)))
    return false;
  constexpr REFERENCE_TIME second = 10'000'000;
  const HRESULT opened = client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK,
                                            second, 0, mix, nullptr);
  CoTaskMemFree(mix);
  return SUCCEEDED(opened) &&
         SUCCEEDED(client->GetService(__uuidof(IAudioCaptureClient), capture.putVoid()));
}

}  // namespace vellumic::tools
