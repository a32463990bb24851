// Follows the system volume of an object's endpoint: from its lock to its unlock.
//
// Threads: add() and clear() on control threads, where an add() that meets a clear() may be cleared
// with the rest, and never under parameterLock; the readers on any thread but the real-time thread.
// clear() holds no lock while it unregisters, so an audio service that waits there for a running
// notification cannot deadlock with it.
#pragma once

#include <map>
#include <string>

#include "control/AudioEndpointVolumeCallback.h"
#include "engine/ParameterSets.h"

namespace vellumic {

class CHandleVolumeNotification {
 public:
  CHandleVolumeNotification() = default;
  ~CHandleVolumeNotification() { clear(); }
  CHandleVolumeNotification(const CHandleVolumeNotification&) = delete;
  CHandleVolumeNotification& operator=(const CHandleVolumeNotification&) = delete;

  // Registers for the endpoint. A device or volume control that is missing makes an entry without
  // notifications; a level that cannot be read makes none. For a known id the first registration
  // stays. False only if there is no device enumerator. effectsChangedEvent is duplicated.
  bool add(VolumeHandler handler, HANDLE effectsChangedEvent, const std::wstring& deviceId);

  // Linear gains of the entry's levels, and 1.17549435e-38 without an entry.
  [[nodiscard]] float masterGain(const std::wstring& id) const;
  [[nodiscard]] float firstChannelGain(const std::wstring& id) const;
  [[nodiscard]] float secondChannelGain(const std::wstring& id) const;
  [[nodiscard]] bool isMuted(const std::wstring& id) const;
  [[nodiscard]] std::size_t channelCount(const std::wstring& id) const;

  // The three gains as the image takes them: at least 1e-5 each, all 0 when muted.
  [[nodiscard]] Volumes volumes(const std::wstring& id) const;

  // Removes every entry. Waits for a running notification; hold no lock.
  void clear() noexcept;

 private:
  using Callback = _CAudioEndpointVolumeCallback;
  ComPtr<Callback> first() const noexcept;  // empty: no entry
  ComPtr<Callback> find(const std::wstring& id) const;

  mutable CriticalLock mapLock_;
  std::map<std::wstring, ComPtr<Callback>> entries_;
};

// Writes an endpoint's changed volumes into both images: the channels' only if there are several.
void renewVolumes(const CHandleVolumeNotification& notification, const std::wstring& id,
                  ParameterSets& sets);

}  // namespace vellumic
