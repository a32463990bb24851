// What every audio processing object does alike: answers about itself, the entry of the real-time
// thread, connection checks.
//
// Threads: APOProcess, CalcInputFrames and CalcOutputFrames on the audio engine's real-time thread;
// everything else on its control thread.
#pragma once

#include <windows.h>

#include <atomic>

#include "apo/AudioEngine.h"
#include "engine/ParameterSets.h"
#include "engine/ProcessCall.h"
#include "engine/ProcessContext.h"
#include "platform/CriticalLock.h"

namespace vellumic {

class CBaseAudioProcessingObject : public IAudioProcessingObject,
                                   public IAudioProcessingObjectRT,
                                   public IAudioProcessingObjectConfiguration {
 public:
  explicit CBaseAudioProcessingObject(const APO_REG_PROPERTIES& properties) noexcept
      : registrationProperties(&properties) {}
  CBaseAudioProcessingObject(const CBaseAudioProcessingObject&) = delete;
  CBaseAudioProcessingObject& operator=(const CBaseAudioProcessingObject&) = delete;

  // IAudioProcessingObject
  HRESULT STDMETHODCALLTYPE Reset() noexcept override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetLatency(LONGLONG* hundredNanoseconds) noexcept override;
  HRESULT STDMETHODCALLTYPE
  GetRegistrationProperties(APO_REG_PROPERTIES** properties) noexcept override;
  HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32* count) noexcept override;

  // Behind the last slot that COM sees.
  virtual ~CBaseAudioProcessingObject() = default;
  // The input's rate into both images. E_UNEXPECTED for no connections, E_POINTER for a missing
  // one, or what a format answers.
  virtual HRESULT ValidateAndCacheConnectionInfo(UINT32 inputCount,
                                                 APO_CONNECTION_DESCRIPTOR** inputs,
                                                 UINT32 outputCount,
                                                 APO_CONNECTION_DESCRIPTOR** outputs) noexcept;
  // Forces 32-bit float in 4 bytes, 1 to 4096 channels and 10 to 384000 Hz; 1 if that changed
  // anything, else 0.
  virtual UINT32 ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format) noexcept;
  // The default input and output format, 72 bytes. `written` gets 0x48 also when the buffer is too
  // small.
  virtual HRESULT GetDefaultFormatRepresentation(void* buffer, UINT32 size,
                                                 UINT32* written) noexcept;

  // IAudioProcessingObjectRT. APOProcess trusts the valid frame count and buffer of its
  // connections; nothing that is stored here limits the frames of a call.
  void STDMETHODCALLTYPE APOProcess(UINT32 inputCount, APO_CONNECTION_PROPERTY** inputs,
                                    UINT32 outputCount,
                                    APO_CONNECTION_PROPERTY** outputs) noexcept override;
  UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 outputFrames) noexcept override;
  UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 inputFrames) noexcept override;

 protected:
  [[nodiscard]] ConnectionLimits connectionLimits() const noexcept;
  // The images that a proposed rate goes into; null before they exist.
  virtual ParameterSets* images() noexcept = 0;

  std::atomic<bool> isLocked{false};
  std::atomic<bool> isInitialized{false};
  const APO_REG_PROPERTIES* const registrationProperties;
  CriticalLock objectCritSec;  // serialises Initialize, format queries, validate, lock, unlock
  UINT32 inputChannelCount = 0;
  ProcessContext context;
};

}  // namespace vellumic
