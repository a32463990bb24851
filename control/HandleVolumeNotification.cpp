#include "control/HandleVolumeNotification.h"

#include <algorithm>
#include <cmath>

#include "control/BoundedText.h"
#include "control/DeviceProperties.h"
#include "control/Names.h"
#include "control/OpenEvent.h"

namespace vellumic {
namespace {

float gainOf(float levelDb) noexcept { return std::pow(10.0F, levelDb / 20.0F); }

// Empty when the device is gone or has no volume control.
ComPtr<IAudioEndpointVolume> controlOf(IMMDeviceEnumerator& enumerator, const std::wstring& id) {
  ComPtr<IMMDevice> device;
  if (FAILED(enumerator.GetDevice(id.c_str(), device.put())) || !device) return {};
  ComPtr<IAudioEndpointVolume> control;
  if (FAILED(
          device->Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr, control.putVoid())))
    return {};
  return control;
}

VolumeNotificationTarget targetOf(VolumeHandler handler, HANDLE effectsChangedEvent,
                                  const std::wstring& id) {
  VolumeNotificationTarget target;
  if (effectsChangedEvent != nullptr)
    target.effectsChangedEvent = duplicateEvent(effectsChangedEvent);
  // The name is cut where its buffer ends; the map's key never is.
  target.volumeChangeEvent =
      createOpenEvent(BoundedText<nameCapacity>{volumeEventPrefix, id}.c_str());
  target.handler = std::move(handler);
  target.deviceId = id;
  return target;
}

}  // namespace

bool CHandleVolumeNotification::add(VolumeHandler handler, HANDLE effectsChangedEvent,
                                    const std::wstring& deviceId) {
  const auto callback = ComPtr<Callback>::attach(new Callback(deviceId));
  auto target = targetOf(std::move(handler), effectsChangedEvent, deviceId);
  HRESULT result = S_OK;
  const auto enumerator = createDeviceEnumerator(result);
  if (!enumerator) return false;
  if (auto control = controlOf(*enumerator.get(), deviceId)) {
    if (FAILED(callback->takeSnapshot(*control.get()))) return true;
    callback->follow(std::move(control));
  }
  bool inserted = false;
  try {
    callback->attach(std::move(target));
    const LockScope scope(mapLock_);
    inserted = entries_.emplace(deviceId, callback).second;
  } catch (...) {
    callback->detach();
    callback->unfollow();
    throw;
  }
  if (!inserted) {
    callback->detach();
    callback->unfollow();
  }
  return true;
}

void CHandleVolumeNotification::clear() noexcept {
  while (const auto entry = first()) {
    entry->detach();
    entry->unfollow();
    // Readable until here: a handler that was running found its levels.
    const LockScope scope(mapLock_);
    std::erase_if(entries_, [&](const auto& item) { return item.second.get() == entry.get(); });
  }
}

ComPtr<_CAudioEndpointVolumeCallback> CHandleVolumeNotification::first() const noexcept {
  const LockScope scope(mapLock_);
  return entries_.empty() ? ComPtr<Callback>() : entries_.begin()->second;
}

ComPtr<_CAudioEndpointVolumeCallback> CHandleVolumeNotification::find(
    const std::wstring& id) const {
  const LockScope scope(mapLock_);
  const auto entry = entries_.find(id);
  return entry != entries_.end() ? entry->second : ComPtr<Callback>();
}

float CHandleVolumeNotification::masterGain(const std::wstring& id) const {
  const auto entry = find(id);
  return entry ? gainOf(entry->levels().masterDb) : unknownLevel;
}

float CHandleVolumeNotification::firstChannelGain(const std::wstring& id) const {
  const auto entry = find(id);
  return entry ? gainOf(entry->levels().channel0Db) : unknownLevel;
}

float CHandleVolumeNotification::secondChannelGain(const std::wstring& id) const {
  const auto entry = find(id);
  return entry ? gainOf(entry->levels().channel1Db) : unknownLevel;
}

bool CHandleVolumeNotification::isMuted(const std::wstring& id) const {
  const auto entry = find(id);
  return entry && entry->isMuted();
}

std::size_t CHandleVolumeNotification::channelCount(const std::wstring& id) const {
  const auto entry = find(id);
  return entry ? entry->levels().channelLevelsScalar.size() : 0;
}

Volumes CHandleVolumeNotification::volumes(const std::wstring& id) const {
  if (isMuted(id)) return {0.0F, 0.0F, 0.0F};  // only mute gives exactly 0
  constexpr float least = ParameterSets::leastVolume;
  return {std::max(masterGain(id), least), std::max(firstChannelGain(id), least),
          std::max(secondChannelGain(id), least)};
}

void renewVolumes(const CHandleVolumeNotification& notification, const std::wstring& id,
                  ParameterSets& sets) {
  const Volumes volumes = notification.volumes(id);
  if (notification.channelCount(id) > 1)
    sets.setVolumes(volumes);
  else
    sets.setMasterVolume(volumes.master);
}

}  // namespace vellumic
