// The microphone's volume control, call by call as the array classes use it.
#include <endpointvolume.h>

#include <atomic>
#include <cstdlib>

#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

constexpr ULONGLONG volumePatienceMs = 1000;

ComPtr<IAudioEndpointVolume> controlOf(IMMDevice& device) {
  ComPtr<IAudioEndpointVolume> control;
  check(device.Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr, control.putVoid()),
        "volume control");
  return control;
}

class Listener final : public Counted<IAudioEndpointVolumeCallback> {
 public:
  explicit Listener(IMMDevice& device) : device_(ComPtr<IMMDevice>::share(&device)) {}

  // Asks the system while it calls, as the array's own does.
  HRESULT STDMETHODCALLTYPE OnNotify(AUDIO_VOLUME_NOTIFICATION_DATA*) override {
    inside_ = true;
    HRESULT asked = S_OK;
    if (!control_)  // kept: releasing one inside a notification can deadlock
      asked = device_->Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr,
                                control_.putVoid());
    float level = 0.0F;
    if (SUCCEEDED(asked)) asked = control_->GetMasterVolumeLevelScalar(&level);
    asked_ = asked;
    ++calls_;
    Sleep(pauseMs_);
    inside_ = false;
    return S_OK;
  }
  void pause(DWORD milliseconds) { pauseMs_ = milliseconds; }
  [[nodiscard]] bool inside() const { return inside_; }
  [[nodiscard]] int calls() const { return calls_; }
  [[nodiscard]] HRESULT asked() const { return asked_; }

 private:
  const ComPtr<IMMDevice> device_;
  ComPtr<IAudioEndpointVolume> control_;
  std::atomic<bool> inside_{false};
  std::atomic<int> calls_{0};
  std::atomic<HRESULT> asked_{S_OK};
  std::atomic<DWORD> pauseMs_{0};
};

template <class Condition>
bool comes(Condition condition) {
  for (const ULONGLONG end = GetTickCount64() + volumePatienceMs; !condition(); Sleep(1))
    if (GetTickCount64() > end) return false;
  return true;
}

void readLevels(StageLog& log, IAudioEndpointVolume& control) {
  UINT channels = 0;
  BOOL muted = FALSE;
  float low = 0.0F, high = 0.0F, step = 0.0F;
  log.call("GetMute", [&] { return control.GetMute(&muted); });
  log.call("GetVolumeRange", [&] { return control.GetVolumeRange(&low, &high, &step); });
  log.call("GetChannelCount", [&] { return control.GetChannelCount(&channels); });
  const auto ofAll = [&](auto method) {
    HRESULT result = channels > 0 ? S_OK : E_NOTIMPL;
    for (UINT channel = 0; SUCCEEDED(result) && channel < channels; ++channel) {
      float level = 0.0F;
      result = (control.*method)(channel, &level);
    }
    return result;
  };
  log.call("GetChannelVolumeLevel",
           [&] { return ofAll(&IAudioEndpointVolume::GetChannelVolumeLevel); });
  log.call("GetChannelVolumeLevelScalar",
           [&] { return ofAll(&IAudioEndpointVolume::GetChannelVolumeLevelScalar); });
}

// Told of changes until end(), or its own end.
class Registration {
 public:
  Registration(IAudioEndpointVolume& control, IAudioEndpointVolumeCallback& listener)
      : control_(control), listener_(listener) {}
  ~Registration() {
    if (on_) control_.UnregisterControlChangeNotify(&listener_);
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  HRESULT end() {
    on_ = false;
    return control_.UnregisterControlChangeNotify(&listener_);
  }

 private:
  IAudioEndpointVolume& control_;
  IAudioEndpointVolumeCallback& listener_;
  bool on_ = true;
};

void notifications(StageLog& log, IAudioEndpointVolume& control, const Endpoint& endpoint) {
  const auto listener = make<Listener>(*endpoint.device.get());
  float before = 0.0F;
  const bool ready = log.call("GetMasterVolumeLevelScalar", [&] {
    return control.GetMasterVolumeLevelScalar(&before);
  }) && log.call("RegisterControlChangeNotify", [&] {
    return control.RegisterControlChangeNotify(listener.get());
  });
  if (!ready) return log.tell("OnNotify", untold("nobody is told of changes"));
  Registration registration(control, *listener.get());
  const std::string undo = "volume-back " + endpoint.guid + ' ' + std::to_string(before);
  const float other = before > 0.5F ? before - 0.02F : before + 0.02F;
  bool changed = false;
  const auto putBack = [&] {
    const HRESULT result = control.SetMasterVolumeLevelScalar(before, nullptr);
    changed = changed && FAILED(result);
    return result;
  };
  log.willChange(undo);
  log.attempt("OnNotify", [&] {
    check(control.SetMasterVolumeLevelScalar(other, nullptr), "changing the volume by 2 %");
    changed = true;
    const bool came = comes([&] { return listener->calls() > 0; });
    float now = before;
    if (!came && SUCCEEDED(control.GetMasterVolumeLevelScalar(&now)) && now == before)
      return untold("this control has no steps as small as 2 %");
    return judgeNotification(came);
  });
  if (listener->calls() > 0)
    log.call("Activate and GetMasterVolumeLevelScalar inside OnNotify",
             [&] { return listener->asked(); });
  comes([&] { return !listener->inside(); });
  log.attempt("UnregisterControlChangeNotify while OnNotify runs", [&] {
    listener->pause(100);
    check(putBack(), "changing the volume back");
    const bool running = comes([&] { return listener->inside(); });
    check(registration.end(), "ending the registration");
    const bool ended = !listener->inside();
    comes([&] { return !listener->inside(); });
    return judgeUnregister(running, ended);
  });
  if (!changed) log.changedBack(undo);  // else another process tries
}

}  // namespace

void volumeStage(StageLog& log, const StageOptions& options) {
  const TestSite site(options.endpoint);
  if (!site.hasMicrophone())
    return log.tell("microphone", untold("no microphone; connect one and run again"));
  log.excuse(wineExcuse());
  ComPtr<IAudioEndpointVolume> control;
  const bool there = log.attempt("control activated", [&] {
    control = controlOf(*site.endpoint().device.get());
    return good();
  });
  if (!there) return;
  readLevels(log, *control.get());
  notifications(log, *control.get(), site.endpoint());
}

void volumeBackStage(StageLog& log, const std::string& argument) {
  const std::size_t space = argument.find(' ');
  const std::string guid = argument.substr(0, space);
  const float level =
      space == std::string::npos ? 1.0F : std::strtof(argument.c_str() + space, nullptr);
  log.attempt("volume put back", [&] {
    try {
      const auto enumerator = createEnumerator();
      check(controlOf(*findCaptureEndpoint(*enumerator.get(), guid).device.get())
                ->SetMasterVolumeLevelScalar(level, nullptr),
            guid);
      return good();
    } catch (const std::runtime_error& error) {
      return bad(std::string(error.what()) + "; set the microphone's volume back to " +
                 std::to_string(static_cast<int>(100.0F * level + 0.5F)) + " % by hand");
    }
  });
}

}  // namespace vellumic::tools
