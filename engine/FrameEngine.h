// The engine of one object: the frame under work, the signal objects, and the slots that hold the
// incoming parameter set while a change fades in.
//
// Threads: the real-time thread while the stream is locked, the control thread otherwise;
// `handover` by any thread under parameterLock.
#pragma once

#include <array>
#include <cstdint>

#include "engine/EngineHandover.h"
#include "engine/SlotMap.h"
#include "filters/BiquadEqualizer.h"
#include "frontend/ArrayPipeline.h"
#include "platform/Realtime.h"

namespace vellumic {

class Arena;

class FrameEngine {
 public:
  using Frame = std::array<float, slotCount>;

  // The opener gives the pipeline its loopback packets (see frontend/PacketSource.h).
  explicit FrameEngine(LoopbackOpener openLoopback);
  FrameEngine(const FrameEngine&) = delete;
  FrameEngine& operator=(const FrameEngine&) = delete;

  // Takes over what the builders left. Under parameterLock. Real-time safe. A set that waits or
  // fades in (setWaits) must not silence the one that is still heard: a pipeline record that
  // switches the pipeline off stays in the hand-over until then.
  void adopt(bool setWaits) noexcept VELLUMIC_NONBLOCKING;

  // The pipeline's part in the latest build. Under parameterLock.
  bool latestRunsPipeline() const noexcept { return handover.pipeline.settings().runs(); }

  // The incoming set; empty until the first lock gives it blocks from the arena.
  float* nextImage = nullptr;
  float* nextFadeState = nullptr;
  void* nextReserved = nullptr;
  std::uint8_t* nextMask = nullptr;

  Frame frame{};      // slot order of SlotMap.h; zeroed before every frame
  Frame fadeFrame{};  // the same frame on its way through the incoming set

  // A run of frames on its way through the effect, which takes runs far faster than frames: 64 of
  // full width, more of narrow ones.
  std::array<float, 64 * slotCount> run{};

  Arena* arena = nullptr;
  SlotMap inputIndex = slotMapOf(2, 0);  // slot to stream position
  SlotMap outputIndex = slotMapOf(2, 0);

  ArrayPipeline pipeline;         // modes 9 and 12
  bool runsPipeline = false;      // the set in force does: enabled, and not in run state off
  bool nextRunsPipeline = false;  // the incoming set does
  BiquadEqualizer equalizer;      // mode 10

  EngineHandover handover;
};

}  // namespace vellumic
