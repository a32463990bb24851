// Which input and output formats an object accepts: one precomputed byte per combination of
// processing mode, rates, kinds and records; plus the pair of formats last found supported.
//
// The matrix is 8 modes (seven and a spare) x 8 x 8 rates x 2 x 2 kinds x 15 x 15 records
// = 0x70800 = 460,800 bytes. It depends on the type alone, so all objects of a type share one,
// built when the first object of the type is made.
//
// Threads: control threads, one at a time (objectCritSec).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "apo/AudioEngine.h"
#include "control/ComPtr.h"

namespace vellumic {

enum class eAPO_TYPE : int {
  eAPO_TYPE_Invalid = 0,
  eAPO_TYPE_RenderLFX,
  eAPO_TYPE_RenderGFX,
  eAPO_TYPE_RenderSFX,
  eAPO_TYPE_RenderMFX,
  eAPO_TYPE_RenderEFX,
  eAPO_TYPE_RenderSFXOffload,
  eAPO_TYPE_RenderMFXOffload,
  eAPO_TYPE_RenderEFXOffload,
  eAPO_TYPE_CaptureLFX,
  eAPO_TYPE_CaptureGFX,
  eAPO_TYPE_CaptureSFX,
  eAPO_TYPE_CaptureMFX,
  eAPO_TYPE_CaptureEFX,
  eAPO_TYPE_CaptureKDMFX,
};

class FormatTable {
 public:
  static constexpr std::size_t modeCount = 8, rateCount = 8, kindCount = 2, recordCount = 15;
  static constexpr std::size_t matrixSize =
      modeCount * rateCount * rateCount * kindCount * kindCount * recordCount * recordCount;
  static_assert(matrixSize == 0x70800);

  explicit FormatTable(eAPO_TYPE type);

  // The processing mode that later lookups are for; until then, and for an id that is
  // none of the seven modes, nothing is supported.
  void setMode(const GUID& mode) noexcept;

  // Whether the pair is supported. Either may be null in a query and then stands for any format.
  [[nodiscard]] bool supports(IAudioMediaType* input, IAudioMediaType* output) const noexcept;

  // Keeps the pair of a supported query, with counts of its own; the earlier pair is released.
  void keep(IAudioMediaType* input, IAudioMediaType* output) noexcept;

 private:
  int mode_ = -1;  // index, or -1
  const std::vector<std::uint8_t>& matrix_;
  ComPtr<IAudioMediaType> input_, output_;
};

}  // namespace vellumic
