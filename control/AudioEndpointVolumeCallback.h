// One registration with an endpoint's volume control, and the levels it last told.
//
// Threads: OnNotify on a thread of the audio service; everything else on the control thread. The
// levels are read by both. While OnNotify calls the handler it holds dispatchLock_, which detach()
// takes: after detach() no handler runs and none will. Lock order: dispatchLock_, the map's lock
// (HandleVolumeNotification.h) and parameterLock, levelLock_.
#pragma once

#include <windows.h>

#include <endpointvolume.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "control/ComPtr.h"
#include "control/Handle.h"
#include "control/Module.h"
#include "platform/CriticalLock.h"

namespace vellumic {

using VolumeHandler = std::function<void(std::wstring deviceId)>;

// Levels without a volume control: the smallest normal float in dB, which is a gain of 1.
inline constexpr float unknownLevel = std::numeric_limits<float>::min();

// Who is told of a change.
struct VolumeNotificationTarget {
  KernelHandle effectsChangedEvent;  // own duplicate, may be empty
  KernelHandle volumeChangeEvent;    // for outside programs, may be empty
  VolumeHandler handler;
  std::wstring deviceId;
};

// One reading of an endpoint's volume control.
struct VolumeLevels {
  std::vector<float> channelLevelsDb, channelLevelsScalar;                  // one per channel
  float masterScalar = 0.0F, channel0Scalar = 0.0F, channel1Scalar = 0.0F;  // 0 to 1
  float masterDb = unknownLevel, channel0Db = unknownLevel, channel1Db = unknownLevel;
};

// Reads the levels of a control with that many channels: master, the first two channels, and the
// vectors as far as they go. The first failure ends it and is returned.
HRESULT readLevels(IAudioEndpointVolume& volume, UINT channels, VolumeLevels& levels);

class _CAudioEndpointVolumeCallback final : public IAudioEndpointVolumeCallback {
  const ModuleUse use_;  // the audio service may hold it, and be inside it, after its object's end

 public:
  // device: whose levels a notification refreshes.
  explicit _CAudioEndpointVolumeCallback(std::wstring device) : device_(std::move(device)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++referenceCount; }
  ULONG STDMETHODCALLTYPE Release() noexcept override;
  // A change of one channel alone, with the master level as it was, is dropped. A failure to read
  // the new levels is returned and nobody is told. E_POINTER without data.
  HRESULT STDMETHODCALLTYPE OnNotify(AUDIO_VOLUME_NOTIFICATION_DATA* data) noexcept override;

  // Reads the first state of a control. Levels that cannot be read are a failure; a mute state
  // that cannot be read is not, and leaves all initial values.
  HRESULT takeSnapshot(IAudioEndpointVolume& control);
  // Registers with the control and keeps it.
  void follow(ComPtr<IAudioEndpointVolume> control) noexcept;
  // From here on changes are passed on.
  void attach(VolumeNotificationTarget target);
  // Waits for a running handler, then drops it; hold no lock.
  void detach();
  // Ends the registration and releases the controls; hold no lock. The events close with the last
  // reference.
  void unfollow() noexcept;

  [[nodiscard]] VolumeLevels levels() const;
  [[nodiscard]] bool isMuted() const;

  std::atomic<std::uint32_t> referenceCount{1};
  float minDb = 0.0F, maxDb = 0.0F, stepDb = 0.0F;  // range of the control

 private:
  ~_CAudioEndpointVolumeCallback() = default;
  HRESULT refresh();
  HRESULT notify(const AUDIO_VOLUME_NOTIFICATION_DATA& data);
  void tellTarget();

  const std::wstring device_;
  ComPtr<IAudioEndpointVolume> endpointVolume_;   // registered with; empty without a control
  ComPtr<IAudioEndpointVolume> refreshedVolume_;  // of the first refresh; released by unfollow()
  bool registered_ = false;

  mutable CriticalLock dispatchLock_;
  VolumeNotificationTarget notificationTarget_;
  std::wstring deviceId_;  // empty until attached: nobody is told

  mutable CriticalLock levelLock_;
  float masterVolumeScalar_ = 0.0F;
  bool muted_ = false;
  VolumeLevels levels_;
};

}  // namespace vellumic
