#include "tools/host/StreamFormat.h"

#include <cstring>

namespace vellumic::tools {
namespace {}  // namespace

std::string FormatShape::text() const {
  char buffer[64];
  if (extensible)
    std::snprintf(buffer, sizeof buffer, "extensible %u/0x%x", channels, mask);
  else
    std::snprintf(buffer, sizeof buffer, "plain %u", channels);
  return buffer;
}

MediaType::MediaType(const FormatShape& shape) {
  constexpr WORD bytes = sizeof(float);
  WAVEFORMATEX& format = wave_.Format;
  format.wFormatTag = shape.extensible ? WAVE_FORMAT_EXTENSIBLE : WAVE_FORMAT_IEEE_FLOAT;
  format.nChannels = static_cast<WORD>(shape.channels);
  format.nSamplesPerSec = shape.sampleRate;
  format.nBlockAlign = static_cast<WORD>(shape.channels * bytes);
  format.nAvgBytesPerSec = shape.sampleRate * format.nBlockAlign;
  format.wBitsPerSample = 8 * bytes;
  format.cbSize = shape.extensible ? sizeof wave_ - sizeof format : 0;
  wave_.Samples.wValidBitsPerSample = 8 * bytes;
  wave_.dwChannelMask = shape.mask;
  wave_.SubFormat = ieeeFloat;
}

HRESULT MediaType::IsCompressedFormat(BOOL* compressed) {
  if (compressed == nullptr) return E_POINTER;
  *compressed = FALSE;
  return S_OK;
}

HRESULT MediaType::IsEqual(IAudioMediaType* other, DWORD* flags) {
  constexpr DWORD sameTypes = 2, sameData = 4, sameUserData = 8;
  if (other == nullptr || flags == nullptr) return E_POINTER;
  const WAVEFORMATEX* const format = other->GetAudioFormat();
  const std::size_t size = sizeof(WAVEFORMATEX) + wave_.Format.cbSize;
  const bool equal = format != nullptr && format->cbSize == wave_.Format.cbSize &&
                     std::memcmp(format, &wave_, size) == 0;
  *flags = equal ? sameTypes | sameData | sameUserData : 0;
  return equal ? S_OK : S_FALSE;
}

HRESULT MediaType::GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) {
  if (format == nullptr) return E_POINTER;
  *format = {.guidFormatType = ieeeFloat,
             .dwSamplesPerFrame = wave_.Format.nChannels,
             .dwBytesPerSampleContainer = sizeof(float),
             .dwValidBitsPerSample = 8 * sizeof(float),
             .fFramesPerSecond = static_cast<float>(wave_.Format.nSamplesPerSec),
             .dwChannelMask = wave_.dwChannelMask};
  return S_OK;
}

std::vector<FormatShape> proposals(unsigned channels, unsigned sampleRate, std::uint32_t mask) {
  return {{true, channels, sampleRate, mask},
          {false, channels, sampleRate, 0},
          {true, channels, sampleRate, 0}};
}

}  // namespace vellumic::tools
