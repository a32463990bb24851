#include "apo/FormatTable.h"

#include <mmreg.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "apo/ProcessingModes.h"

namespace vellumic {
namespace {

constexpr std::array<std::uint32_t, FormatTable::rateCount> rates{16000, 22050, 32000, 44100,
                                                                  48000, 88200, 96000, 192000};

enum class Kind : std::uint8_t { plain, extensible };

struct Record {
  std::uint32_t channels, mask;
};

// Records of WAVEFORMATEXTENSIBLE. The first group belongs to the render types; capture types
// look only at the second.
constexpr std::array<Record, 15> extensibleRecords{{{1, 0x1},
                                                    {2, 0x3},
                                                    {3, 0xb},
                                                    {4, 0x4000b},
                                                    {3, 0x7},
                                                    {4, 0xf},
                                                    {4, 0x33},
                                                    {5, 0x607},
                                                    {6, 0x60f},
                                                    {7, 0x637},
                                                    {8, 0x63f},
                                                    {1, 0x4},
                                                    {2, 0x3},
                                                    {4, 0x0},
                                                    {8, 0x0}}};
constexpr std::size_t extensibleSecondGroup = 11;
// Records of plain WAVEFORMATEX, which has no mask.
constexpr std::array<Record, 6> plainRecords{{{1, 0}, {2, 0}, {1, 0}, {2, 0}, {4, 0}, {8, 0}}};
constexpr std::size_t plainSecondGroup = 2;

struct MarkedPair {
  Kind kind;
  Record input, output;
  bool endpointEffectOnly;
};

constexpr std::array<MarkedPair, 10> captureTable{{
    {Kind::plain, {1, 0x0}, {1, 0x0}, false},
    {Kind::extensible, {1, 0x4}, {1, 0x4}, false},
    {Kind::plain, {2, 0x0}, {2, 0x0}, false},
    {Kind::extensible, {2, 0x3}, {2, 0x3}, false},
    {Kind::extensible, {4, 0x0}, {4, 0x0}, false},
    {Kind::extensible, {8, 0x0}, {8, 0x0}, false},
    {Kind::plain, {4, 0x0}, {4, 0x0}, false},
    {Kind::plain, {8, 0x0}, {8, 0x0}, false},
    {Kind::plain, {1, 0x0}, {2, 0x0}, true},
    {Kind::extensible, {1, 0x4}, {2, 0x3}, true},
}};
constexpr std::array<std::uint32_t, 3> markedRates{16000, 44100, 48000};

// What of a format the matrix is indexed by.
struct Position {
  std::size_t rate, kind, record;
};

std::optional<std::size_t> recordPosition(Kind kind, Record wanted) noexcept {
  const std::span<const Record> all = kind == Kind::plain
                                          ? std::span<const Record>(plainRecords)
                                          : std::span<const Record>(extensibleRecords);
  const std::size_t first = kind == Kind::plain ? plainSecondGroup : extensibleSecondGroup;
  for (std::size_t i = first; i < all.size(); ++i)
    if (all[i].channels == wanted.channels && all[i].mask == wanted.mask) return i;
  return std::nullopt;
}

std::optional<std::size_t> ratePosition(std::uint32_t rate) noexcept {
  const auto* found = std::find(rates.begin(), rates.end(), rate);
  if (found == rates.end()) return std::nullopt;
  return static_cast<std::size_t>(found - rates.begin());
}

std::optional<Position> positionOf(IAudioMediaType* format) noexcept {
  const WAVEFORMATEX* wave = format->GetAudioFormat();
  if (wave == nullptr || wave->wBitsPerSample != 32) return std::nullopt;
  Kind kind = Kind::plain;
  Record record{wave->nChannels, 0};
  if (wave->wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
    constexpr WORD extensionSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    static_assert(extensionSize == 22);
    if (wave->cbSize < extensionSize) return std::nullopt;
    const auto* extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wave);
    if (!IsEqualGUID(extensible->SubFormat, ieeeFloat)) return std::nullopt;
    kind = Kind::extensible;
    record.mask = extensible->dwChannelMask;
  } else if (wave->wFormatTag != WAVE_FORMAT_IEEE_FLOAT) {
    return std::nullopt;
  }
  const auto rate = ratePosition(wave->nSamplesPerSec);
  const auto place = recordPosition(kind, record);
  if (!rate || !place) return std::nullopt;
  return Position{*rate, static_cast<std::size_t>(kind), *place};
}

std::size_t offset(std::size_t mode, const Position& input, const Position& output) noexcept {
  std::size_t place = mode;
  place = place * FormatTable::rateCount + input.rate;
  place = place * FormatTable::rateCount + output.rate;
  place = place * FormatTable::kindCount + input.kind;
  place = place * FormatTable::kindCount + output.kind;
  place = place * FormatTable::recordCount + input.record;
  return place * FormatTable::recordCount + output.record;
}

std::vector<std::uint8_t> filled(bool endpointEffect) {
  std::vector<std::uint8_t> matrix(FormatTable::matrixSize);
  for (const MarkedPair& pair : captureTable) {
    if (pair.endpointEffectOnly && !endpointEffect) continue;
    const auto kind = static_cast<std::size_t>(pair.kind);
    const std::size_t input = recordPosition(pair.kind, pair.input).value();
    const std::size_t output = recordPosition(pair.kind, pair.output).value();
    for (const GUID& mode : acceptedModes)
      for (const std::uint32_t hertz : markedRates) {
        const std::size_t rate = ratePosition(hertz).value();
        matrix[offset(static_cast<std::size_t>(modeIndex(mode)), {rate, kind, input},
                      {rate, kind, output})] = 1;
      }
  }
  return matrix;
}

const std::vector<std::uint8_t>& matrixOf(eAPO_TYPE type) {
  if (type == eAPO_TYPE::eAPO_TYPE_CaptureEFX) {
    static const std::vector<std::uint8_t> endpoint = filled(true);
    return endpoint;
  }
  static const std::vector<std::uint8_t> mode = filled(false);  // MFX and KDMFX share their fill
  return mode;
}

}  // namespace

FormatTable::FormatTable(eAPO_TYPE type) : matrix_(matrixOf(type)) {}

void FormatTable::setMode(const GUID& mode) noexcept { mode_ = modeIndex(mode); }

bool FormatTable::supports(IAudioMediaType* input, IAudioMediaType* output) const noexcept {
  if (mode_ < 0 || (input == nullptr && output == nullptr)) return false;
  const auto in = input != nullptr ? positionOf(input) : std::nullopt;
  const auto out = output != nullptr ? positionOf(output) : std::nullopt;
  if ((input != nullptr && !in) || (output != nullptr && !out)) return false;
  const auto mode = static_cast<std::size_t>(mode_);
  if (in && out) return matrix_[offset(mode, *in, *out)] != 0;

  // A missing side means any format there: look for one at the same rate and of the same kind.
  const Position known = in ? *in : *out;
  for (std::size_t record = 0; record < recordCount; ++record) {
    const Position any{known.rate, known.kind, record};
    if (matrix_[in ? offset(mode, known, any) : offset(mode, any, known)] != 0) return true;
  }
  return false;
}

void FormatTable::keep(IAudioMediaType* input, IAudioMediaType* output) noexcept {
  input_ = ComPtr<IAudioMediaType>::share(input);
  output_ = ComPtr<IAudioMediaType>::share(output);
}

}  // namespace vellumic
