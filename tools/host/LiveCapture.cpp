#include "tools/host/LiveCapture.h"

#include <algorithm>
#include <chrono>

namespace vellumic::tools {
namespace {

constexpr REFERENCE_TIME bufferDuration = 2'000'000;  // 200 ms in units of 100 ns
constexpr double periodMs = 10.0;
constexpr DWORD packetPatienceMs = 5000;  // without a packet

// A started stream on an urgent thread, until its end.
class Running {
 public:
  explicit Running(IAudioClient& client) : client_(client) {
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
  }
  ~Running() {
    client_.Stop();
    SetThreadPriority(GetCurrentThread(), priority_);
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  IAudioClient& client_;
  const int priority_ = GetThreadPriority(GetCurrentThread());
};

}  // namespace

LiveCapture::LiveCapture(const Endpoint& endpoint) {
  const std::string where = "endpoint " + endpoint.name;
  check(endpoint.device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client_.putVoid()),
        where + ": cannot be opened");
  WAVEFORMATEX* mix = nullptr;
  check(client_->GetMixFormat(&mix), where + ": has no mix format");
  channels_ = mix->nChannels;
  sampleRate_ = mix->nSamplesPerSec;
  const bool isFloat = mix->wBitsPerSample == 8 * sizeof(float);
  const HRESULT opened = client_->Initialize(
      AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, bufferDuration, 0, mix, nullptr);
  CoTaskMemFree(mix);
  check(opened, where + ": cannot be recorded");
  if (!isFloat) throw std::runtime_error(where + ": its mix format is not 32-bit float");
  event_.reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  check(client_->SetEventHandle(event_.get()), where + ": takes no event");
  check(client_->GetService(__uuidof(IAudioCaptureClient), capture_.putVoid()),
        where + ": has no capture client");
}

LiveFigures LiveCapture::run(double seconds,
                             const std::function<void(const float*, unsigned)>& take) {
  using Clock = std::chrono::steady_clock;
  LiveFigures figures;
  const Running running(*client_.get());
  check(client_->Start(), "the microphone does not start");
  heardFrames_ = 0.0;
  Clock::time_point last = Clock::now(), lastPacket = last;
  while (heardFrames_ < seconds * sampleRate_) {
    const DWORD woken = WaitForSingleObject(event_.get(), packetPatienceMs);
    const Clock::time_point now = Clock::now();
    // A sound server that is in trouble may go on signalling: packets count.
    if (woken != WAIT_OBJECT_0 || now - lastPacket > std::chrono::milliseconds(packetPatienceMs))
      throw std::runtime_error("the microphone sends nothing; check its cable and its switch");
    const std::chrono::duration<double, std::milli> waited = now - last;
    last = now;
    if (figures.packets > 0) {
      figures.longestWaitMs = std::max(figures.longestWaitMs, waited.count());
      figures.lateWakeUps += waited.count() > 2 * periodMs ? 1 : 0;
    }
    const int before = figures.packets;
    drain(take, figures);
    if (figures.packets > before) lastPacket = now;
  }
  return figures;
}

void LiveCapture::drain(const std::function<void(const float*, unsigned)>& take,
                        LiveFigures& figures) {
  for (;;) {
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    const HRESULT got = capture_->GetBuffer(&data, &frames, &flags, nullptr, nullptr);
    check(got, "the microphone is gone; has its sound server ended?");
    if (got != S_OK) return;  // nothing waits
    // The first packet is always marked as one after a gap.
    if ((flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY) != 0 && figures.packets > 0)
      ++figures.discontinuities;
    ++figures.packets;
    if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0) {
      silence_.assign(std::size_t{frames} * channels_, 0.0F);
      take(silence_.data(), frames);
    } else {
      take(reinterpret_cast<const float*>(data), frames);
    }
    capture_->ReleaseBuffer(frames);
    heardFrames_ += frames;
  }
}

}  // namespace vellumic::tools
