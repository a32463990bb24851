// What the default loudspeaker plays, recorded as the array classes do, call by call. Meanwhile the
// test plays noise of -86 dB, so that there is something to hear.
#include <audioclient.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Sounds.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

constexpr REFERENCE_TIME second = 10'000'000;  // in units of 100 ns
constexpr ULONGLONG listeningMs = 500;
constexpr float loudness = 1e-4F;

struct Mix {
  WAVEFORMATEX* format = nullptr;
  ~Mix() { CoTaskMemFree(format); }
};

// The loudspeaker, opened one way or the other.
class Stream {
 public:
  Stream(IMMDevice& device, DWORD flags) {
    check(device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client_.putVoid()),
          "Activate");
    Mix mix;
    check(client_->GetMixFormat(&mix.format), "GetMixFormat");
    channels_ = mix.format->nChannels;
    isFloat_ = mix.format->wBitsPerSample == 8 * sizeof(float);
    check(client_->Initialize(AUDCLNT_SHAREMODE_SHARED, flags, second, 0, mix.format, nullptr),
          "Initialize");
  }
  ~Stream() { client_->Stop(); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  template <class Interface>
  ComPtr<Interface> service() const {
    ComPtr<Interface> result;
    check(client_->GetService(__uuidof(Interface), result.putVoid()), "GetService");
    return result;
  }
  void start() const { check(client_->Start(), "Start"); }
  [[nodiscard]] UINT32 bufferFrames() const {
    UINT32 frames = 0;
    check(client_->GetBufferSize(&frames), "GetBufferSize");
    return frames;
  }
  [[nodiscard]] unsigned channels() const { return channels_; }
  [[nodiscard]] bool isFloat() const { return isFloat_; }

 private:
  ComPtr<IAudioClient> client_;
  unsigned channels_ = 0;
  bool isFloat_ = false;
};

void playNoise(const Stream& stream) {
  const auto render = stream.service<IAudioRenderClient>();
  const UINT32 frames = stream.bufferFrames();
  BYTE* data = nullptr;
  check(render->GetBuffer(frames, &data), "GetBuffer for playing");
  std::vector<float> noise =
      evenNoise(stream.isFloat() ? std::size_t{frames} * stream.channels() : 0);
  for (float& sample : noise) sample *= loudness;
  std::copy(noise.begin(), noise.end(), reinterpret_cast<float*>(data));
  const DWORD flags = stream.isFloat() ? 0 : DWORD{AUDCLNT_BUFFERFLAGS_SILENT};
  check(render->ReleaseBuffer(frames, flags), "ReleaseBuffer for playing");
  stream.start();
}

// The three calls of the frame path, with the worst time of each in microseconds.
class Packets {
 public:
  explicit Packets(const Stream& stream)
      : capture_(stream.service<IAudioCaptureClient>()), channels_(stream.channels()) {}

  HRESULT listen() {
    for (const ULONGLONG end = GetTickCount64() + listeningMs; GetTickCount64() < end; Sleep(5))
      if (const HRESULT result = drain(); FAILED(result)) return result;
    return S_OK;
  }
  [[nodiscard]] int count() const { return count_; }
  [[nodiscard]] std::string text() const {
    char text[200];
    std::snprintf(text, sizeof text,
                  "%d packets, peak %.0f dB; worst GetNextPacketSize %.0f us, GetBuffer %.0f us, "
                  "ReleaseBuffer %.0f us",
                  count_, decibelsOf(std::max(peak_, 1e-9F)), worst_[0], worst_[1], worst_[2]);
    return text;
  }

 private:
  template <class Call>
  HRESULT timed(int which, Call call) {
    const auto begin = std::chrono::steady_clock::now();
    const HRESULT result = call();
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - begin;
    worst_[which] = std::max(worst_[which], taken.count());
    return result;
  }
  HRESULT drain() {
    for (;;) {
      UINT32 frames = 0;
      HRESULT result = timed(0, [&] { return capture_->GetNextPacketSize(&frames); });
      if (FAILED(result) || frames == 0) return result;
      BYTE* data = nullptr;
      DWORD flags = 0;
      result =
          timed(1, [&] { return capture_->GetBuffer(&data, &frames, &flags, nullptr, nullptr); });
      if (result != S_OK) return result;
      ++count_;
      const auto* const samples = reinterpret_cast<const float*>(data);
      if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) == 0)
        for (std::size_t i = 0; i < std::size_t{frames} * channels_; ++i)
          peak_ = std::max(peak_, std::abs(samples[i]));
      result = timed(2, [&] { return capture_->ReleaseBuffer(frames); });
      if (FAILED(result)) return result;
    }
  }

  ComPtr<IAudioCaptureClient> capture_;
  unsigned channels_;
  int count_ = 0;
  float peak_ = 0.0F;
  double worst_[3] = {};
};

}  // namespace

void loopbackStage(StageLog& log, const StageOptions&) {
  const auto enumerator = createEnumerator();
  ComPtr<IMMDevice> loudspeaker;
  const bool there = log.call("loudspeaker", [&] {
    return enumerator->GetDefaultAudioEndpoint(eRender, eConsole, loudspeaker.put());
  });
  if (!there) return;
  log.excuse(wineExcuse());
  std::optional<Stream> played, recorded;
  std::optional<Packets> packets;
  log.attempt("playing", [&] {
    played.emplace(*loudspeaker.get(), 0);
    playNoise(*played);
    return good();
  });
  const bool opened = log.attempt("Initialize for loopback", [&] {
    recorded.emplace(*loudspeaker.get(), AUDCLNT_STREAMFLAGS_LOOPBACK);
    return recorded->isFloat() ? good()
                               : bad("the mix format is not 32-bit float; send the report");
  });
  if (!opened) return;
  const bool started = log.attempt("GetService and Start", [&] {
    packets.emplace(*recorded);
    recorded->start();
    return good();
  });
  if (!started) return;
  log.attempt("packets", [&] {
    if (const HRESULT result = packets->listen(); FAILED(result))
      return explained(result, "after " + packets->text());
    return judgeLoopback(packets->count(), packets->text());
  });
}

}  // namespace vellumic::tools
