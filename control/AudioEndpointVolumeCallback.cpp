#include "control/AudioEndpointVolumeCallback.h"

#include <algorithm>
#include <new>

#include "control/DeviceProperties.h"

namespace vellumic {
namespace {

// Runs the steps in order up to the first failure, whose result it gives.
template <class... Steps>
HRESULT inOrder(Steps... steps) {
  HRESULT result = S_OK;
  (void)((SUCCEEDED(result = steps())) && ...);
  return result;
}

}  // namespace

HRESULT readLevels(IAudioEndpointVolume& volume, VolumeLevels& levels) {
  UINT channels = 0;
  const HRESULT result =
      inOrder([&] { return volume.GetChannelCount(&channels); },
              [&] { return volume.GetMasterVolumeLevel(&levels.masterDb); },
              [&] { return volume.GetMasterVolumeLevelScalar(&levels.masterScalar); });
  if (FAILED(result)) return result;
  channels = std::min(channels, UINT{4096});  // the most that a stream can have
  levels.channelLevelsDb.assign(channels, 0.0F);
  levels.channelLevelsScalar.assign(channels, 0.0F);
  for (UINT channel = 0; channel < channels; ++channel) {
    const HRESULT channelResult = inOrder(
        [&] { return volume.GetChannelVolumeLevel(channel, &levels.channelLevelsDb[channel]); },
        [&] {
          return volume.GetChannelVolumeLevelScalar(channel, &levels.channelLevelsScalar[channel]);
        });
    if (FAILED(channelResult)) return channelResult;
  }
  if (channels > 0) {
    levels.channel0Db = levels.channelLevelsDb[0];
    levels.channel0Scalar = levels.channelLevelsScalar[0];
  }
  if (channels > 1) {
    levels.channel1Db = levels.channelLevelsDb[1];
    levels.channel1Scalar = levels.channelLevelsScalar[1];
  }
  return S_OK;
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
  VolumeLevels fresh;
  result = readLevels(*control.get(), fresh);
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
  VolumeLevels levels;
  const HRESULT result = inOrder([&] { return control.GetVolumeRange(&minDb, &maxDb, &stepDb); },
                                 [&] { return readLevels(control, levels); });
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
  if (registered_) endpointVolume_->UnregisterControlChangeNotify(this);
  registered_ = false;
  endpointVolume_.reset();
  ComPtr<IAudioEndpointVolume> refreshed;
  {
    const LockScope scope(levelLock_);
    refreshed = std::move(refreshedVolume_);
  }
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
