#include "apo/BaseAudioProcessingObject.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vellumic {
namespace {

constexpr UNCOMPRESSEDAUDIOFORMAT defaultFormat{.guidFormatType = ieeeFloat,
                                                .dwSamplesPerFrame = 2,
                                                .dwBytesPerSampleContainer = 4,
                                                .dwValidBitsPerSample = 32,
                                                .fFramesPerSecond = 48000.0F,
                                                .dwChannelMask = 3};

template <class Value>
bool force(Value& present, Value wanted) noexcept {
  const bool changes = std::memcmp(&present, &wanted, sizeof wanted) != 0;
  present = wanted;
  return changes;
}

}  // namespace

HRESULT CBaseAudioProcessingObject::GetLatency(LONGLONG* hundredNanoseconds) noexcept {
  if (hundredNanoseconds == nullptr) return E_POINTER;
  *hundredNanoseconds = 0;
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::GetRegistrationProperties(
    APO_REG_PROPERTIES** properties) noexcept {
  if (properties == nullptr) return E_POINTER;
  const std::size_t size =
      sizeof(APO_REG_PROPERTIES) + sizeof(IID) * (registrationProperties->u32NumAPOInterfaces - 1);
  *properties = static_cast<APO_REG_PROPERTIES*>(CoTaskMemAlloc(size));
  if (*properties == nullptr) return E_OUTOFMEMORY;
  std::memcpy(static_cast<void*>(*properties), registrationProperties, size);
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::GetInputChannelCount(UINT32* count) noexcept {
  if (count == nullptr) return E_POINTER;
  if (!isInitialized.load()) return apo_error::notInitialized;
  *count = inputChannelCount;
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::ValidateAndCacheConnectionInfo(
    UINT32 inputCount, APO_CONNECTION_DESCRIPTOR** inputs, UINT32 outputCount,
    APO_CONNECTION_DESCRIPTOR** outputs) noexcept {
  if (inputCount == 0 || outputCount == 0) return E_UNEXPECTED;
  for (APO_CONNECTION_DESCRIPTOR** side : {inputs, outputs})
    if (side == nullptr || side[0] == nullptr || side[0]->pFormat == nullptr) return E_POINTER;
  const LockScope scope(objectCritSec);
  UNCOMPRESSEDAUDIOFORMAT input{}, output{};
  if (const HRESULT result = inputs[0]->pFormat->GetUncompressedAudioFormat(&input); FAILED(result))
    return result;
  if (const HRESULT result = outputs[0]->pFormat->GetUncompressedAudioFormat(&output);
      FAILED(result))
    return result;
  if (ParameterSets* const sets = images()) sets->proposeRate(input.fFramesPerSecond);
  return S_OK;
}

UINT32 CBaseAudioProcessingObject::ValidateDefaultAPOFormat(
    UNCOMPRESSEDAUDIOFORMAT& format) noexcept {
  constexpr float leastRate = 10.0F, mostRate = 384000.0F;
  bool changed = force(format.guidFormatType, ieeeFloat);
  changed |= force(format.dwBytesPerSampleContainer, DWORD{4});
  changed |= force(format.dwValidBitsPerSample, DWORD{32});
  changed |=
      force(format.dwSamplesPerFrame, std::clamp(format.dwSamplesPerFrame, DWORD{1}, DWORD{4096}));
  const float rate = format.fFramesPerSecond;
  changed |= force(format.fFramesPerSecond, !(rate >= leastRate) ? leastRate  // NaN as well
                                                                 : std::min(rate, mostRate));
  return changed ? 1 : 0;
}

HRESULT CBaseAudioProcessingObject::GetDefaultFormatRepresentation(void* buffer, UINT32 size,
                                                                   UINT32* written) noexcept {
  constexpr std::array<UNCOMPRESSEDAUDIOFORMAT, 2> formats{defaultFormat, defaultFormat};
  static_assert(sizeof formats == 0x48);
  if (written == nullptr) return E_POINTER;
  *written = sizeof formats;
  if (size < sizeof formats) return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
  if (buffer == nullptr) return E_POINTER;
  std::memcpy(buffer, formats.data(), sizeof formats);
  return S_OK;
}

}  // namespace vellumic
