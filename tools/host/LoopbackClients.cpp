#include "tools/host/LoopbackClients.h"

#include <ksmedia.h>
#include <mmreg.h>

namespace vellumic::tools {
namespace {

class FileCapture final : public Counted<IAudioCaptureClient> {
 public:
  FileCapture(const WaveData& far, const StreamClock& clock) : source_(far, gaps_, clock) {}

  HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override {
    *frames = source_.nextPacketSize().value_or(0);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64*,
                                      UINT64*) override {
    Packet packet;
    if (!source_.get(packet)) return AUDCLNT_S_BUFFER_EMPTY;
    *data = reinterpret_cast<BYTE*>(const_cast<float*>(packet.samples));
    *frames = packet.frames;
    *flags = packet.silent ? DWORD{AUDCLNT_BUFFERFLAGS_SILENT} : 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override {
    source_.release(frames);
    return S_OK;
  }

 private:
  std::vector<TimeSpan> gaps_;
  FarSource source_;
};

// The parts of an audio client that nobody asks a loopback for.
class LoopbackClient : public Counted<IAudioClient> {
 public:
  HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX*,
                                              WAVEFORMATEX**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME*, REFERENCE_TIME*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE) override { return E_NOTIMPL; }
};

class FileClient final : public LoopbackClient {
 public:
  FileClient(const WaveData& far, const StreamClock& clock, std::atomic<bool>& started)
      : far_(far), clock_(clock), started_(started) {}

  HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE, DWORD, REFERENCE_TIME, REFERENCE_TIME,
                                       const WAVEFORMATEX*, LPCGUID) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
    *frames = static_cast<UINT32>(far_.format.sampleRate);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
    auto* const mix = static_cast<WAVEFORMATEX*>(CoTaskMemAlloc(sizeof(WAVEFORMATEX)));
    *format = mix;
    if (mix == nullptr) return E_OUTOFMEMORY;
    *mix = {};
    mix->wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    mix->nChannels = static_cast<WORD>(far_.format.channels);
    mix->nSamplesPerSec = static_cast<DWORD>(far_.format.sampleRate);
    mix->nBlockAlign = static_cast<WORD>(far_.format.channels * static_cast<int>(sizeof(float)));
    mix->nAvgBytesPerSec = mix->nSamplesPerSec * mix->nBlockAlign;
    mix->wBitsPerSample = 8 * sizeof(float);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Start() override {
    started_ = true;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Stop() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetService(REFIID id, void** service) override {
    return make<FileCapture>(far_, clock_)->QueryInterface(id, service);
  }

 private:
  const WaveData& far_;
  const StreamClock& clock_;
  std::atomic<bool>& started_;
};

class MonitorClient final : public LoopbackClient {
 public:
  MonitorClient(ComPtr<IAudioClient> real, std::atomic<bool>& started)
      : real_(std::move(real)), started_(started) {}

  HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration,
                                       REFERENCE_TIME period, const WAVEFORMATEX* format,
                                       LPCGUID session) override {
    constexpr DWORD loopback = AUDCLNT_STREAMFLAGS_LOOPBACK;
    return real_->Initialize(mode, flags & ~loopback, duration, period, format, session);
  }
  HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
    return real_->GetBufferSize(frames);
  }
  HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
    return real_->GetMixFormat(format);
  }
  HRESULT STDMETHODCALLTYPE Start() override {
    const HRESULT result = real_->Start();
    started_ = started_ || SUCCEEDED(result);
    return result;
  }
  HRESULT STDMETHODCALLTYPE Stop() override { return real_->Stop(); }
  HRESULT STDMETHODCALLTYPE GetService(REFIID id, void** service) override {
    return real_->GetService(id, service);
  }

 private:
  ComPtr<IAudioClient> real_;
  std::atomic<bool>& started_;
};

}  // namespace

ComPtr<IAudioClient> fileLoopback(const WaveData& far, const StreamClock& clock,
                                  std::atomic<bool>& started) {
  return ComPtr<IAudioClient>::attach(new FileClient(far, clock, started));
}

ComPtr<IAudioClient> monitorLoopback(ComPtr<IAudioClient> real, std::atomic<bool>& started) {
  return ComPtr<IAudioClient>::attach(new MonitorClient(std::move(real), started));
}

}  // namespace vellumic::tools
