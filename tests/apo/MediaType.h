// A stream format as the audio engine would pass it.
#pragma once

#include <windows.h>

#include <ksmedia.h>
#include <mmreg.h>

#include "apo/AudioEngine.h"
#include "tests/control/DeviceDoubles.h"

namespace vellumic::test {

class MediaType : public Double<IAudioMediaType> {
 public:
  WAVEFORMATEXTENSIBLE wave{};
  std::atomic<int> answers = 1'000'000;  // so often GetAudioFormat gives one, then null
  HRESULT uncompressed = S_OK;

  MediaType() = default;
  MediaType(const MediaType& other) : Double(), wave(other.wave) {}

  static MediaType plain(unsigned channels, unsigned rate = 48000) {
    MediaType type;
    auto& format = type.wave.Format;
    format = {.wFormatTag = 3,
              .nChannels = static_cast<WORD>(channels),
              .nSamplesPerSec = rate,
              .nAvgBytesPerSec = rate * channels * 4,
              .nBlockAlign = static_cast<WORD>(channels * 4),
              .wBitsPerSample = 32,
              .cbSize = 0};
    return type;
  }
  static MediaType extensible(unsigned channels, DWORD mask, unsigned rate = 48000) {
    MediaType type = plain(channels, rate);
    type.wave.Format.wFormatTag = 0xFFFE;
    type.wave.Format.cbSize = 22;
    type.wave.Samples.wValidBitsPerSample = 32;
    type.wave.dwChannelMask = mask;
    type.wave.SubFormat = {3, 0, 0x10, {0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71}};
    return type;
  }

  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* compressed) override {
    *compressed = FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType*, DWORD*) override { return E_NOTIMPL; }
  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override {
    return answers-- > 0 ? &wave.Format : nullptr;
  }
  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) override {
    *format = {.guidFormatType = wave.SubFormat,
               .dwSamplesPerFrame = wave.Format.nChannels,
               .dwBytesPerSampleContainer = 4,
               .dwValidBitsPerSample = 32,
               .fFramesPerSecond = static_cast<float>(wave.Format.nSamplesPerSec),
               .dwChannelMask = wave.dwChannelMask};
    return uncompressed;
  }
};

}  // namespace vellumic::test
