#include "control/AudioEndpointVolumeCallback.h"

#include <algorithm>
#include <new>
#include <utility>

#include "control/DeviceProperties.h"

namespace vellumic {
namespace {

constexpr UINT mostChannels = 4096;  // of any stream

// Runs the steps in order up to the first failure, whose result it gives.
template <class... Steps>
HRESULT inOrder(Steps... steps) {
  HRESULT result = S_OK;
  (void)((SUCCEEDED(result = steps())) && ...);
  return result;
}

}  // namespace

HRESULT readLevels(IAudioEndpointVolume& volume, UINT channels, VolumeLevels& levels) {
  const auto readChannel = [&](UINT channel, float& decibels, float& scalar) {
    return inOrder([&] { return volume.GetChannelVolumeLevel(channel, &decibels); },
                   [&] { return volume.GetChannelVolumeLevelScalar(channel, &scalar); });
  };
  HRESULT result = inOrder([&] { return volume.GetMasterVolumeLevel(&levels.masterDb); },
                           [&] { return volume.GetMasterVolumeLevelScalar(&levels.masterScalar); });
  if (SUCCEEDED(result) && channels > 0)
    result = readChannel(0, levels.channel0Db, levels.channel0Scalar);
  if (SUCCEEDED(result) && channels > 1)
    result = readChannel(1, levels.channel1Db, levels.channel1Scalar);
  const std::size_t kept = std::min<std::size_t>(channels, levels.channelLevelsDb.size());
  for (UINT channel = 0; SUCCEEDED(result) && channel < kept; ++channel)
    result =
        readChannel(channel, levels.channelLevelsDb[channel], levels.channelLevelsScalar[channel]);
  return result;
}

HRESULT _CAudioEndpointVolumeCallback::QueryInterface(REFIID id, void** object) noexcept {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (!IsEqualIID(id, __uuidof(IUnknown)) &&
      !IsEqualIID(id, __uuidof(IAudioEndpointVolumeCallback)))
    return E_NOINTERFACE;
  *object = static_cast<IAudioEndpointVolumeCallback*>(this);
  AddRef();
  return S_OK;
}

ULONG _CAudioEndpointVolumeCallback::Release() noexcept {
  const ULONG left = --referenceCount;
  if (left == 0) delete this;
  return left;
}

HRESULT _CAudioEndpointVolumeCallback::OnNotify(AUDIO_VOLUME_NOTIFICATION_DATA* data) noexcept {
  if (data == nullptr) return E_POINTER;
  const auto keptAlive = ComPtr<_CAudioEndpointVolumeCallback>::share(this);
  try {
    return notify(*data);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

HRESULT _CAudioEndpointVolumeCallback::notify(const AUDIO_VOLUME_NOTIFICATION_DATA& data) {
  bool masterChanged = false;
  {
    const LockScope scope(levelLock_);
    const bool nowMuted = data.bMuted != FALSE;
    const bool muteChanged = nowMuted != muted_;
    muted_ = nowMuted;
    masterChanged = data.fMasterVolume != masterVolumeScalar_;
    if (!masterChanged && !muteChanged) return S_OK;
    masterVolumeScalar_ = data.fMasterVolume;
  }
  if (masterChanged)
    if (const HRESULT result = refresh(); FAILED(result)) return result;
  tellTarget();
  return S_OK;
}

HRESULT _CAudioEndpointVolumeCallback::refresh() {
  HRESULT result = S_OK;
  const auto enumerator = createDeviceEnumerator(result);
  if (!enumerator) return result;
  ComPtr<IMMDevice> device;
  result = enumerator->GetDevice(device_.c_str(), device.put());
  if (FAILED(result)) return result;

  // The first refreshed control stays: releasing one inside a notification can deadlock.
  ComPtr<IAudioEndpointVolume> control;
  {
    const LockScope scope(levelLock_);
    control = refreshedVolume_;
  }
  if (!control) {
    result =
        device->Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr, control.putVoid());
    if (FAILED(result)) return result;
    const LockScope scope(levelLock_);
    refreshedVolume_ = control;
  }
  VolumeLevels fresh = levels();  // the channels stay as many as the snapshot had
  UINT channels = 0;
  result = inOrder([&] { return control->GetChannelCount(&channels); },
                   [&] { return readLevels(*control.get(), channels, fresh); });
  if (FAILED(result)) return result;
  const LockScope scope(levelLock_);
  levels_ = std::move(fresh);
  return S_OK;
}

void _CAudioEndpointVolumeCallback::tellTarget() {
  const LockScope scope(dispatchLock_);
  if (deviceId_.empty()) return;
  if (notificationTarget_.handler) notificationTarget_.handler(deviceId_);
  if (notificationTarget_.effectsChangedEvent)
    SetEvent(notificationTarget_.effectsChangedEvent.get());
  if (notificationTarget_.volumeChangeEvent) SetEvent(notificationTarget_.volumeChangeEvent.get());
}

HRESULT _CAudioEndpointVolumeCallback::takeSnapshot(IAudioEndpointVolume& control) {
  BOOL muted = FALSE;
  if (FAILED(control.GetMute(&muted))) return S_OK;
  UINT channels = 0;
  VolumeLevels levels;
  const auto readSized = [&] {
    channels = std::min(channels, mostChannels);
    levels.channelLevelsDb.resize(channels);
    levels.channelLevelsScalar.resize(channels);
    return readLevels(control, channels, levels);
  };
  const HRESULT result = inOrder([&] { return control.GetVolumeRange(&minDb, &maxDb, &stepDb); },
                                 [&] { return control.GetChannelCount(&channels); }, readSized);
  if (FAILED(result)) return result;
  const LockScope scope(levelLock_);
  muted_ = muted != FALSE;
  masterVolumeScalar_ = levels.masterScalar;
  levels_ = std::move(levels);
  return S_OK;
}

void _CAudioEndpointVolumeCallback::follow(ComPtr<IAudioEndpointVolume> control) noexcept {
  endpointVolume_ = std::move(control);
  registered_ = SUCCEEDED(endpointVolume_->RegisterControlChangeNotify(this));
}

void _CAudioEndpointVolumeCallback::attach(VolumeNotificationTarget target) {
  const LockScope scope(dispatchLock_);
  notificationTarget_ = std::move(target);
  deviceId_ = notificationTarget_.deviceId;
}

void _CAudioEndpointVolumeCallback::detach() {
  const LockScope scope(dispatchLock_);
  deviceId_.clear();
  notificationTarget_.handler = nullptr;
}

void _CAudioEndpointVolumeCallback::unfollow() noexcept {
  ComPtr<IAudioEndpointVolume> control, refreshed;
  bool registered = false;
  {
    const LockScope scope(levelLock_);
    control = std::move(endpointVolume_);
    registered = std::exchange(registered_, false);
  }
  if (registered) control->UnregisterControlChangeNotify(this);
  const LockScope scope(levelLock_);  // no notification runs any more: this was the last one's
  std::swap(refreshed, refreshedVolume_);
}

VolumeLevels _CAudioEndpointVolumeCallback::levels() const {
  const LockScope scope(levelLock_);
  return levels_;
}

bool _CAudioEndpointVolumeCallback::isMuted() const {
  const LockScope scope(levelLock_);
  return muted_;
}

}  // namespace vellumic
