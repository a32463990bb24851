#include "tools/ctl/EffectFormats.h"

#include <algorithm>
#include <array>

#include "apo/ProcessingModes.h"

namespace vellumic::tools {
namespace {

// A format for one question; lives on the stack and is never kept.
class AskedFormat final : public IAudioMediaType {
 public:
  explicit AskedFormat(const WAVEFORMATEXTENSIBLE& wave) : wave_(wave) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType*, DWORD*) override { return E_NOTIMPL; }
  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override { return &wave_.Format; }
  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT*) override {
    return E_NOTIMPL;
  }

 private:
  const WAVEFORMATEXTENSIBLE& wave_;
};

bool accepts(const EffectSlot& slot, const WAVEFORMATEXTENSIBLE& wave) {
  FormatTable table(slot.formatType);
  AskedFormat format(wave);
  return std::ranges::any_of(acceptedModes, [&](const GUID& mode) {
    table.setMode(mode);
    return table.supports(&format, &format);
  });
}

}  // namespace

std::string refusalOf(const EffectSlot& slot, const WAVEFORMATEXTENSIBLE& wave) {
  if (accepts(slot, wave)) return {};
  // What would do instead, from a format that is surely good towards this one.
  WAVEFORMATEXTENSIBLE other = wave;
  other.Format.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
  other.Format.wBitsPerSample = 32;
  other.Format.nSamplesPerSec = 48000;
  if (!accepts(slot, other)) return "1, 2, 4 or 8 channels";
  other.Format.nSamplesPerSec = wave.Format.nSamplesPerSec;
  if (!accepts(slot, other)) return "16000, 44100 or 48000 Hz";
  if (wave.Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
    other = wave;
    constexpr std::array<const char*, 3> texts{"speakers 0x4", "speakers 0x3",
                                               "no speaker positions (its driver decides)"};
    constexpr std::array<DWORD, 3> masks{4, 3, 0};
    for (std::size_t i = 0; i < masks.size(); ++i) {
      other.dwChannelMask = masks[i];
      if (accepts(slot, other)) return texts[i];
    }
  }
  return "32-bit float";
}

}  // namespace vellumic::tools
