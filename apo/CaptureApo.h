// A capture effect as the audio engine sees it: one template for the three classes.
//
// Life: constructed; Initialize once (for discovery too; a failed one can be tried again);
// LockForProcess and UnlockForProcess repeatedly; destroyed in any state.
//
// Threads: the audio engine's control thread for everything but APOProcess (real-time thread),
// onVolumeChanged (a thread of the audio service) and the parameter thread's work.
// Lock order: objectCritSec, objectLock, parameterLock. No COM call leaves an exception.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <array>
#include <memory>
#include <string>

#include "apo/BaseAudioProcessingObject.h"
#include "apo/CaptureTraits.h"
#include "apo/FormatTable.h"
#include "apo/InitData.h"
#include "control/ComPtr.h"
#include "control/HandleEndpoint.h"
#include "control/HandleParameterThread.h"
#include "control/HandleVolumeNotification.h"
#include "control/ParameterSync.h"
#include "control/ParametersInRegistry.h"
#include "control/SharedMemoryAccessHandler.h"
#include "engine/Arena.h"
#include "engine/FrameEngine.h"
#include "engine/ParameterSets.h"

namespace vellumic {

template <class Traits>
class CaptureApo : public CBaseAudioProcessingObject,
                   public IMMNotificationClient,
                   public IAudioSystemEffects2,
                   public IAudioSystemEffectsCustomFormats,
                   public Traits::OwnInterface,
                   public CSharedMemoryAccessHandler,
                   public CHandleParameterThread<CaptureApo<Traits>>,
                   public CHandleEndpoint,
                   public CParametersInRegistry {
 public:
  CaptureApo();
  ~CaptureApo() override;

  // IAudioProcessingObject
  HRESULT STDMETHODCALLTYPE Initialize(UINT32 dataSize, BYTE* data) noexcept override;
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* output,
                                                   IAudioMediaType* requested,
                                                   IAudioMediaType** supported) noexcept override;
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* input,
                                                    IAudioMediaType* requested,
                                                    IAudioMediaType** supported) noexcept override;

  // IAudioProcessingObjectConfiguration
  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 inputCount, APO_CONNECTION_DESCRIPTOR** inputs,
                                           UINT32 outputCount,
                                           APO_CONNECTION_DESCRIPTOR** outputs) noexcept override;
  HRESULT STDMETHODCALLTYPE UnlockForProcess() noexcept override;

  // IMMNotificationClient: nothing to do, the engine makes a new object for a new device.
  HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) noexcept override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) noexcept override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) noexcept override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) noexcept override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) noexcept override {
    return S_OK;
  }

  // IAudioSystemEffects2
  HRESULT STDMETHODCALLTYPE GetEffectsList(GUID** ids, UINT* count, HANDLE event) noexcept override;

  // IAudioSystemEffectsCustomFormats: there are none.
  HRESULT STDMETHODCALLTYPE GetFormatCount(UINT* count) noexcept override;
  HRESULT STDMETHODCALLTYPE GetFormat(UINT, IAudioMediaType**) noexcept override {
    return E_INVALIDARG;
  }
  HRESULT STDMETHODCALLTYPE GetFormatRepresentation(UINT, LPWSTR*) noexcept override {
    return E_INVALIDARG;
  }

  // The class's own interface
  HRESULT STDMETHODCALLTYPE GetState(VARIANT_BOOL* locked) noexcept override;
  HRESULT STDMETHODCALLTYPE PerformAction(int action,
                                          CActionResult<float>** result) noexcept override;

  // For ComObject: the interface without a count, or null.
  void* findInterface(REFIID id) noexcept;

  // For the parameter thread.
  static constexpr ParameterThreadTraits parameterThreadTraits = Traits::worker;
  ParameterThreadSubject parameterThreadSubject() noexcept;

  // The volume of the endpoint changed: into both images at once.
  void onVolumeChanged(const std::wstring& deviceId);

 private:
  ParameterSets* images() noexcept override { return sets_.allocated() ? &sets_ : nullptr; }
  HRESULT initialize(const InitData& init);
  void describe(const InitData& init);
  HRESULT takeBlocks();
  void undoInitialize() noexcept;
  HRESULT startStream(const WAVEFORMATEX& input, const WAVEFORMATEX& output);
  bool followVolume();
  void publishRate(std::uint32_t rate);
  HRESULT isFormatSupported(IAudioMediaType* input, IAudioMediaType* output,
                            IAudioMediaType* requested, IAudioMediaType** supported) noexcept;

  ParameterSync sync_;
  Arena arena_;
  FrameEngine engine_;
  ParameterSets sets_{arena_, engine_, sync_};
  FormatTable formatTable_{Traits::formatType};
  std::unique_ptr<CHandleVolumeNotification> volume_;  // of classes that follow the volume

  CLSID classId_{};
  GUID modeId_{};
  ProcessingMode processingMode_ = ProcessingMode::standard;
  ComPtr<IPropertyStore> effectProperties_;
  ComPtr<IAudioMediaType> inputFormat_, outputFormat_;  // of the stream
};

using CVellumicAPOCaptureEFX = CaptureApo<EndpointEffectTraits>;
using CVellumicAPOCaptureMFX = CaptureApo<ModeEffectTraits>;
using CVellumicAPOCaptureKDMFX = CaptureApo<KeywordDetectorTraits>;

extern template class CaptureApo<EndpointEffectTraits>;
extern template class CaptureApo<ModeEffectTraits>;
extern template class CaptureApo<KeywordDetectorTraits>;

}  // namespace vellumic
