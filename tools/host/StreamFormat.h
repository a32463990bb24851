// Stream formats as the audio engine passes them to an effect.
#pragma once

#include <windows.h>

#include <ksmedia.h>
#include <mmreg.h>

#include <cstdint>
#include <string>
#include <vector>

#include "apo/AudioEngine.h"
#include "tools/host/ComTools.h"

namespace vellumic::tools {

// 32-bit float. A mask belongs to WAVE_FORMAT_EXTENSIBLE alone.
struct FormatShape {
  bool extensible = false;
  unsigned channels = 2, sampleRate = 48000;
  std::uint32_t mask = 0;

  [[nodiscard]] std::string text() const;  // "extensible 4/0x0"
};

class MediaType final : public Counted<IAudioMediaType> {
 public:
  explicit MediaType(const FormatShape& shape);

  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* compressed) override;
  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* other, DWORD* flags) override;
  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override { return &wave_.Format; }
  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) override;

 private:
  WAVEFORMATEXTENSIBLE wave_{};
};

// What a host tries for so many channels, most specific first.
std::vector<FormatShape> proposals(unsigned channels, unsigned sampleRate, std::uint32_t mask);

}  // namespace vellumic::tools
