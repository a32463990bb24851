#include "control/WasapiLoopback.h"

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>

#include <optional>
#include <utility>

#include "control/ComPtr.h"
#include "control/DeviceProperties.h"
#include "control/Module.h"

namespace vellumic {
namespace {

constexpr REFERENCE_TIME bufferDuration = 10'000'000;  // one second in units of 100 ns

struct TaskMemoryFree {
  void operator()(WAVEFORMATEX* format) const noexcept { CoTaskMemFree(format); }
};
using OwnedFormat = std::unique_ptr<WAVEFORMATEX, TaskMemoryFree>;

// Keeps the process's multithreaded apartment alive, whatever the threads do.
class ApartmentUse {
 public:
  ApartmentUse() noexcept {
    if (FAILED(CoIncrementMTAUsage(&cookie_))) cookie_ = nullptr;
  }
  ~ApartmentUse() {
    if (cookie_ != nullptr) CoDecrementMTAUsage(cookie_);
  }
  ApartmentUse(const ApartmentUse&) = delete;
  ApartmentUse& operator=(const ApartmentUse&) = delete;

 private:
  CO_MTA_USAGE_COOKIE cookie_ = nullptr;
};

class WasapiLoopback final : public PacketSource {
 public:
  ~WasapiLoopback() override { stop(); }

  bool open() noexcept {
    if (!openDevice() || !openClient()) return false;
    UINT32 bufferFrames = 0;
    if (FAILED(audioClient_->GetBufferSize(&bufferFrames)) || bufferFrames == 0) return false;
    return SUCCEEDED(
               audioClient_->GetService(__uuidof(IAudioCaptureClient), captureClient_.putVoid())) &&
           captureClient_;
  }

  MixFormat mixFormat() const noexcept override { return format_; }

  bool start() noexcept override {
    if (!started_) started_ = SUCCEEDED(audioClient_->Start());
    return started_;
  }

  void stop() noexcept override {
    if (std::exchange(started_, false)) audioClient_->Stop();
  }

  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    UINT32 frames = 0;
    if (FAILED(captureClient_->GetNextPacketSize(&frames))) return std::nullopt;
    return frames;
  }

  bool get(Packet& packet) noexcept override {
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    // The empty buffer is a success code that leaves nothing to release.
    if (captureClient_->GetBuffer(&data, &frames, &flags, nullptr, nullptr) != S_OK) return false;
    packet.samples = reinterpret_cast<const float*>(data);
    packet.frames = frames;
    packet.silent = (flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0 || data == nullptr;
    return true;
  }

  void release(std::uint32_t frames) noexcept override { captureClient_->ReleaseBuffer(frames); }

 private:
  bool openDevice() noexcept {
    HRESULT result = S_OK;
    const auto enumerator = createDeviceEnumerator(result);
    return enumerator &&
           SUCCEEDED(enumerator->GetDefaultAudioEndpoint(eRender, eConsole, device_.put())) &&
           device_ &&
           SUCCEEDED(device_->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                                       audioClient_.putVoid())) &&
           audioClient_;
  }

  bool openClient() noexcept {
    WAVEFORMATEX* stored = nullptr;
    if (FAILED(audioClient_->GetMixFormat(&stored)) || stored == nullptr) return false;
    const OwnedFormat mix(stored);
    const bool wholeSamples = mix->nChannels > 0 && mix->nSamplesPerSec > 0 &&
                              std::in_range<int>(mix->nSamplesPerSec) &&
                              mix->nBlockAlign == mix->nChannels * sizeof(float);
    if (!wholeSamples) return false;
    format_ = {mix->nChannels, static_cast<int>(mix->nSamplesPerSec)};
    return SUCCEEDED(audioClient_->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                              AUDCLNT_STREAMFLAGS_LOOPBACK, bufferDuration, 0,
                                              mix.get(), nullptr));
  }

  ApartmentUse apartment_;  // outlives the interfaces
  ComPtr<IMMDevice> device_;
  ComPtr<IAudioClient> audioClient_;
  ComPtr<IAudioCaptureClient> captureClient_;
  MixFormat format_;
  bool started_ = false;
};

}  // namespace

std::unique_ptr<PacketSource> openWasapiLoopback() {
  auto source = std::make_unique<WasapiLoopback>();
  if (!source->open()) return nullptr;
  return source;
}

LoopbackOpener wasapiLoopbackOpener() {
  LoopbackOpener opener;
  opener.open = openWasapiLoopback;
  opener.onLeftBehind = &Module::keepLoaded;
  return opener;
}

}  // namespace vellumic
