#include "tools/host/FixedVolume.h"

#include <algorithm>
#include <cmath>

namespace vellumic::tools {
namespace {

constexpr float lowestDb = -96.0F;

class FixedVolume final : public Counted<IAudioEndpointVolume> {
 public:
  explicit FixedVolume(float linear)
      : linear_(linear),
        decibels_(linear > 0.0F ? std::max(20.0F * std::log10(linear), lowestDb) : lowestDb) {}

  HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback*) override {
    return S_OK;  // it never changes
  }
  HRESULT STDMETHODCALLTYPE UnregisterControlChangeNotify(IAudioEndpointVolumeCallback*) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* count) override { return give(count, 2U); }
  HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(FLOAT* level) override {
    return give(level, decibels_);
  }
  HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(FLOAT* level) override {
    return give(level, linear_);
  }
  HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT, FLOAT* level) override {
    return give(level, decibels_);
  }
  HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT, FLOAT* level) override {
    return give(level, linear_);
  }
  HRESULT STDMETHODCALLTYPE GetMute(WINBOOL* mute) override {
    return give(mute, linear_ > 0.0F ? FALSE : TRUE);
  }
  HRESULT STDMETHODCALLTYPE GetVolumeRange(FLOAT* low, FLOAT* high, FLOAT* step) override {
    *high = 0.0F;
    *step = 1.0F;
    return give(low, lowestDb);
  }
  HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* mask) override {
    return give(mask, DWORD{0});
  }
  HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(FLOAT, LPCGUID) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(FLOAT, LPCGUID) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT, FLOAT, LPCGUID) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT, FLOAT, LPCGUID) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetMute(WINBOOL, LPCGUID) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT*, UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID) override { return E_NOTIMPL; }

 private:
  template <class Value>
  static HRESULT give(Value* target, Value value) {
    if (target == nullptr) return E_POINTER;
    *target = value;
    return S_OK;
  }
  float linear_, decibels_;
};

}  // namespace

ComPtr<IAudioEndpointVolume> fixedVolume(float linear) {
  return ComPtr<IAudioEndpointVolume>::attach(new FixedVolume(linear));
}

}  // namespace vellumic::tools
