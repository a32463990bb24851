#include "apo/CaptureApo.h"

#include <mmreg.h>

#include <cwchar>
#include <new>
#include <type_traits>
#include <utility>

#include "apo/ProcessingModes.h"
#include "control/BoundedText.h"
#include "control/OpenEvent.h"
#include "control/WasapiLoopback.h"

namespace vellumic {
namespace {

// Runs a body whose exceptions must not reach the audio engine.
template <class Body>
HRESULT guarded(Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

std::uint32_t maskOf(const WAVEFORMATEX& format) noexcept {
  return format.wFormatTag == WAVE_FORMAT_EXTENSIBLE
             ? reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format).dwChannelMask
             : 0;
}

}  // namespace

template <class Traits>
CaptureApo<Traits>::CaptureApo()
    : CBaseAudioProcessingObject(Traits::record), engine_(wasapiLoopbackOpener()) {
  if constexpr (Traits::followsVolume) volume_ = std::make_unique<CHandleVolumeNotification>();
}

// The order matters: whoever may still call comes first, then what they use.
template <class Traits>
CaptureApo<Traits>::~CaptureApo() {
  if (volume_) volume_->clear();  // no lock held: this waits for a running notification
  this->shutDown(sync_);
  sets_.release();
  closeLink();
  for (KernelHandle& event : sync_.parameterEvents) event.reset();
  sync_.effectsChangedEvent.reset();
  headsetStatusKey.reset();
  formatTable_.keep(nullptr, nullptr);
}

template <class Traits>
HRESULT CaptureApo<Traits>::Initialize(UINT32 dataSize, BYTE* data) noexcept {
  if (data == nullptr) return E_POINTER;
  if (dataSize == 0) return E_INVALIDARG;
  if (isInitialized.load()) return apo_error::alreadyInitialized;
  InitData init{};
  if (const HRESULT result = readInitData(dataSize, data, init); FAILED(result)) return result;

  const LockScope scope(objectCritSec);  // until a failure is undone: the next call finds no rest
  if (isInitialized.load()) return apo_error::alreadyInitialized;
  HRESULT result = guarded([&] {
    const LockScope builder(sync_.objectLock);
    return initialize(init);
  });
  if (SUCCEEDED(result) && !Traits::startsWorkerInsideLock)
    result = guarded([&] {
      this->start(this);
      return S_OK;
    });
  if (FAILED(result)) undoInitialize();
  return result;
}

template <class Traits>
HRESULT CaptureApo<Traits>::initialize(const InitData& init) {
  open();  // the service is optional
  classId_ = init.classId;
  modeId_ = init.mode;
  processingMode_ = processingModes[static_cast<std::size_t>(modeIndex(init.mode))].mode;
  effectProperties_ = ComPtr<IPropertyStore>::share(init.effectProperties);
  if constexpr (Traits::readsOutputPath) readHardwareOutputPath();
  if (FAILED(identify(init.devices, init.endpointProperties, init.deviceIndex))) return E_FAIL;
  describe(init);
  if (const HRESULT result = takeBlocks(); FAILED(result)) return result;

  if constexpr (Traits::startsWorkerInsideLock) this->start(this);
  sets_.initialize(processingMode_, Traits::lockMode);
  formatTable_.setMode(modeId_);
  publishRate(static_cast<std::uint32_t>(sets_.currentImage()[Entry::sampleRate]));
  publishStatus();
  isInitialized.store(true);
  return S_OK;
}

// Fills the status block and makes the events that it names.
template <class Traits>
void CaptureApo<Traits>::describe(const InitData& init) {
  GUID instance{};
  if (FAILED(CoCreateGuid(&instance))) instance = GUID{};  // then nothing is ever published
  std::array<wchar_t, 40> text{};
  StringFromGUID2(instance, text.data(), static_cast<int>(text.size()));
  StatusText eventName{};
  copyText(eventName, std::wstring(propertyEventPrefix) + text.data());
  sync_.event(ThreadEvent::reload) = createOpenEvent(eventName.data());
  sync_.event(ThreadEvent::ping) = createOpenEvent(pingEventName);

  updateStatus([&](StatusBlock& block) {
    block = StatusBlock{};
    block.instance = instance;
    block.classId = init.classId;
    block.initialized = block.alive = block.ready = 1;
    block.modePresent = 1;
    block.processingMode = init.mode;
    block.majorPresent = block.minorPresent = 1;
    block.majorVersion = apoMajorVersion;
    block.minorVersion = apoMinorVersion;
    block.friendlyNamePresent = block.copyrightPresent = block.propertyEventPresent = 1;
    copyText(block.friendlyName, registrationProperties->szFriendlyName);
    copyText(block.copyright, registrationProperties->szCopyrightInfo);
    block.propertyEvent = eventName;
    CHandleEndpoint::describe(block);
  });
}

template <class Traits>
HRESULT CaptureApo<Traits>::takeBlocks() {
  if (!sets_.allocate()) return E_OUTOFMEMORY;
  readInitialSetting(sets_.rawParameters(), sets_.spareRawParameters());
  updateStatus([this](StatusBlock& block) { block.settings = settingsGuid; });
  sets_.settingRead();
  return S_OK;
}

// Leaves nothing running and nothing open, so that Initialize can be tried again.
template <class Traits>
void CaptureApo<Traits>::undoInitialize() noexcept {
  isInitialized.store(false);
  this->shutDown(sync_);
  sets_.release();
  abandonLink();
  for (KernelHandle& event : sync_.parameterEvents) event.reset();
  headsetStatusKey.reset();
  effectProperties_.reset();
  formatTable_.setMode(GUID{});
  updateStatus([](StatusBlock& block) { block = StatusBlock{}; });
  static_cast<CHandleEndpoint&>(*this) = CHandleEndpoint{};
}

template <class Traits>
HRESULT CaptureApo<Traits>::isFormatSupported(IAudioMediaType* input, IAudioMediaType* output,
                                              IAudioMediaType* requested,
                                              IAudioMediaType** supported) noexcept {
  if (requested == nullptr || supported == nullptr) return E_POINTER;
  const LockScope scope(objectCritSec);
  if (!formatTable_.supports(input, output)) return apo_error::formatNotSupported;
  formatTable_.keep(input, output);
  requested->AddRef();
  *supported = requested;
  return S_OK;
}

template <class Traits>
HRESULT CaptureApo<Traits>::IsInputFormatSupported(IAudioMediaType* output,
                                                   IAudioMediaType* requested,
                                                   IAudioMediaType** supported) noexcept {
  return isFormatSupported(requested, output, requested, supported);
}

template <class Traits>
HRESULT CaptureApo<Traits>::IsOutputFormatSupported(IAudioMediaType* input,
                                                    IAudioMediaType* requested,
                                                    IAudioMediaType** supported) noexcept {
  return isFormatSupported(input, requested, requested, supported);
}

template <class Traits>
HRESULT CaptureApo<Traits>::LockForProcess(UINT32 inputCount, APO_CONNECTION_DESCRIPTOR** inputs,
                                           UINT32 outputCount,
                                           APO_CONNECTION_DESCRIPTOR** outputs) noexcept {
  if (!connectionLimits().accept(inputCount, outputCount) || inputs == nullptr ||
      outputs == nullptr || inputs[0] == nullptr || outputs[0] == nullptr)
    return E_UNEXPECTED;
  HRESULT result = S_OK;
  {
    const LockScope scope(objectCritSec);
    if (isLocked.load()) return apo_error::locked;
    if (!isInitialized.load()) return apo_error::notInitialized;

    inputFormat_ = ComPtr<IAudioMediaType>::share(inputs[0]->pFormat);
    outputFormat_ = ComPtr<IAudioMediaType>::share(outputs[0]->pFormat);
    if (!inputFormat_ || !outputFormat_) return E_UNEXPECTED;
    if (!formatTable_.supports(inputFormat_.get(), outputFormat_.get()))
      return apo_error::invalidConnectionFormat;
    const WAVEFORMATEX* const input = inputFormat_->GetAudioFormat();
    const WAVEFORMATEX* const output = outputFormat_->GetAudioFormat();
    if (input == nullptr || output == nullptr) return apo_error::invalidConnectionFormat;
    result = guarded([&] { return startStream(*input, *output); });
  }
  if (FAILED(result) && volume_) volume_->clear();  // no lock held, see the volume holder
  return result;
}

template <class Traits>
HRESULT CaptureApo<Traits>::startStream(const WAVEFORMATEX& input, const WAVEFORMATEX& output) {
  const bool volumeKnown = followVolume();
  const StreamFormat format{.sampleRate = static_cast<float>(input.nSamplesPerSec),
                            .inputChannels = input.nChannels,
                            .outputChannels = output.nChannels,
                            .inputMask = maskOf(input),
                            .outputMask = maskOf(output)};
  {
    const LockScope scope(sync_.parameterLock);
    if (volumeKnown) sets_.setVolumes(volume_->volumes(deviceIdString));
    const auto effects = sets_.lock(format, processingMode_, Traits::lockMode, context);
    if (!effects) return E_OUTOFMEMORY;
    if (effects->changed() && sync_.effectsChangedEvent) SetEvent(sync_.effectsChangedEvent.get());
  }
  if (statusBlock().sampleRate != input.nSamplesPerSec) {
    publishRate(input.nSamplesPerSec);
    publishStatus();
  }
  markRunning();
  inputChannelCount = input.nChannels;
  isLocked.store(true, std::memory_order_release);  // last: the real-time thread may come now
  return S_OK;
}

// False when the volume entries are to stay as they are.
template <class Traits>
bool CaptureApo<Traits>::followVolume() {
  if constexpr (Traits::followsVolume) {
    KernelHandle event;  // ours: GetEffectsList may replace the stored one meanwhile
    {
      const LockScope scope(sync_.parameterLock);
      if (sync_.effectsChangedEvent) event = duplicateEvent(sync_.effectsChangedEvent.get());
    }
    return volume_->add([this](const std::wstring& id) { onVolumeChanged(id); }, event.get(),
                        deviceIdString);
  } else {
    return false;
  }
}

template <class Traits>
void CaptureApo<Traits>::publishRate(std::uint32_t rate) {
  updateStatus([rate](StatusBlock& block) {
    block.sampleRatePresent = 1;
    block.sampleRate = rate;
  });
}

template <class Traits>
HRESULT CaptureApo<Traits>::UnlockForProcess() noexcept {
  {
    const LockScope scope(objectCritSec);
    if (!isLocked.load()) return apo_error::alreadyUnlocked;
    inputFormat_.reset();
    outputFormat_.reset();
    isLocked.store(false);
  }
  if (volume_) volume_->clear();  // no lock held
  return S_OK;
}

template <class Traits>
HRESULT CaptureApo<Traits>::GetEffectsList(GUID** ids, UINT* count, HANDLE event) noexcept {
  if (ids == nullptr || count == nullptr) return E_POINTER;
  const LockScope scope(sync_.parameterLock);
  if (!sets_.allocated()) return E_POINTER;
  if (const HRESULT result = sync_.setEffectsChangedEvent(event); FAILED(result)) return result;
  return Traits::reportsPendingEffects
             ? listEffects(Traits::effects, sets_.pendingImage(), sets_.pendingMask(), ids, count)
             : listEffects(Traits::effects, sets_.currentImage(), sets_.currentMask(), ids, count);
}

template <class Traits>
HRESULT CaptureApo<Traits>::GetFormatCount(UINT* count) noexcept {
  if (count == nullptr) return E_POINTER;
  *count = 0;
  return S_OK;
}

template <class Traits>
HRESULT CaptureApo<Traits>::GetState(VARIANT_BOOL* locked) noexcept {
  if (locked == nullptr) return E_POINTER;
  *locked = isLocked.load() ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}

template <class Traits>
HRESULT CaptureApo<Traits>::PerformAction(int action, CActionResult<float>** result) noexcept {
  const LockScope scope(sync_.parameterLock);
  if (!sets_.allocated()) return performAction(action, nullptr, result);
  const float volume = sets_.masterVolume();
  return performAction(action, &volume, result);
}

template <class Traits>
void* CaptureApo<Traits>::findInterface(REFIID id) noexcept {
  if (id == __uuidof(IAudioProcessingObject)) return static_cast<IAudioProcessingObject*>(this);
  if (id == __uuidof(IAudioProcessingObjectRT)) return static_cast<IAudioProcessingObjectRT*>(this);
  if (id == __uuidof(IAudioProcessingObjectConfiguration))
    return static_cast<IAudioProcessingObjectConfiguration*>(this);
  if (id == __uuidof(IMMNotificationClient)) return static_cast<IMMNotificationClient*>(this);
  if (id == __uuidof(IAudioSystemEffects) || id == __uuidof(IAudioSystemEffects2))
    return static_cast<IAudioSystemEffects2*>(this);
  if (id == __uuidof(IAudioSystemEffectsCustomFormats))
    return static_cast<IAudioSystemEffectsCustomFormats*>(this);
  if (id == __uuidof(typename Traits::OwnInterface))
    return static_cast<typename Traits::OwnInterface*>(this);
  return nullptr;
}

template <class Traits>
ParameterThreadSubject CaptureApo<Traits>::parameterThreadSubject() noexcept {
  return {.sync = sync_,
          .arena = arena_,
          .sets = sets_,
          .parameters = *this,
          .endpoint = *this,
          .link = *this,
          .isInitialized = isInitialized,
          .processingMode = processingMode_};
}

template <class Traits>
void CaptureApo<Traits>::onVolumeChanged(const std::wstring& deviceId) {
  if (volume_) renewVolumes(*volume_, deviceId, sets_);
}

template class CaptureApo<EndpointEffectTraits>;
template class CaptureApo<ModeEffectTraits>;
template class CaptureApo<KeywordDetectorTraits>;

}  // namespace vellumic
