#include "engine/Volumes.h"

#include <atomic>

#include "platform/Realtime.h"

namespace vellumic {
namespace {

VELLUMIC_RT_CODE float load(const float& entry) noexcept {
  // atomic_ref takes no const object before C++26; a load writes nothing.
  return std::atomic_ref<float>(const_cast<float&>(entry)).load(std::memory_order_relaxed);
}
VELLUMIC_RT_CODE void store(float& entry, float value) noexcept {
  std::atomic_ref<float>(entry).store(value, std::memory_order_relaxed);
}

}  // namespace

VELLUMIC_RT_CODE Volumes loadVolumes(const float* image) noexcept VELLUMIC_NONBLOCKING {
  const ConstImageView view(image);
  return {load(view[Entry::volumeMaster]), load(view[Entry::volumeFirst]),
          load(view[Entry::volumeSecond])};
}

VELLUMIC_RT_CODE void storeMasterVolume(float* image, float master) noexcept {
  store(ImageView(image)[Entry::volumeMaster], master);
}

VELLUMIC_RT_CODE void storeVolumes(float* image, Volumes volumes) noexcept VELLUMIC_NONBLOCKING {
  const ImageView view(image);
  store(view[Entry::volumeMaster], volumes.master);
  store(view[Entry::volumeFirst], volumes.first);
  store(view[Entry::volumeSecond], volumes.second);
}

}  // namespace vellumic
