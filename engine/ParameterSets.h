// The parameter blocks of one object and everything that is done to them off the real-time thread:
// the first build, the build for a stream, live reloads, volumes, teardown.
//
// The blocks are: two raw sets (one is only kept room), the current image, mask and fade block that
// the frame path reads, and the pending image and mask that a build writes. A change exchanges
// pointers; blocks are never copied on the real-time thread.
//
// Life: allocate(), then the reader fills rawParameters() and settingRead(), then initialize();
// lock() for each stream; reload() and the volumes at any time after that; the destructor or
// release() when no call of the audio engine can come any more.
//
// Threads: lock(), initialize() and teardown on the control thread while no frame runs; reload()
// and volumes on any thread but the real-time one. All take parameterLock (it is recursive, a
// caller may hold it already).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "engine/BuildImage.h"
#include "engine/LockBlock.h"
#include "engine/ProcessContext.h"
#include "engine/ProcessingMode.h"
#include "engine/Volumes.h"
#include "parameters/Image.h"
#include "parameters/Raw.h"

namespace vellumic {

struct StreamFormat {
  float sampleRate = 48000.0F;  // Hz
  std::uint32_t inputChannels = 2, outputChannels = 2;
  std::uint32_t inputMask = 0, outputMask = 0;  // the formats' own; 0 where they have none
};

struct EffectsChange {  // effect_flags before and after a build
  std::uint32_t before, after;
  bool changed() const noexcept { return before != after; }
};

class ParameterSets {
 public:
  ParameterSets(Arena& arena, FrameEngine& engine, LockBlock& lockBlock) noexcept;
  ~ParameterSets();
  ParameterSets(const ParameterSets&) = delete;
  ParameterSets& operator=(const ParameterSets&) = delete;

  // The eight blocks, once; true also when they are there already. False, and nothing taken, when
  // the arena is full.
  [[nodiscard]] bool allocate() noexcept;
  bool allocated() const noexcept { return pendingImage_ != nullptr; }

  // Input of the builds. Valid after allocate(); under parameterLock once a worker runs.
  std::span<float, rawCount> rawParameters() const noexcept {
    return std::span<float, rawCount>(raw1_, rawCount);
  }
  // The other raw set: the first reader fills it as well, nothing reads it.
  std::span<float, rawCount> spareRawParameters() const noexcept {
    return std::span<float, rawCount>(raw0_, rawCount);
  }
  // The first setting lies in rawParameters(): nothing is pending before the next reload.
  void settingRead() noexcept;

  // First build, for 2 channels at 48000 Hz with the volume up, into both sets.
  EffectsChange initialize(ProcessingMode processingMode, EffectMode effectMode);

  // Rate in Hz of a stream that was proposed, into both images.
  void proposeRate(float sampleRate) noexcept;

  // Readies engine and both sets for a stream and fills the context. Nothing when the arena has no
  // room for the engine's blocks. May throw std::bad_alloc.
  [[nodiscard]] std::optional<EffectsChange> lock(const StreamFormat& format,
                                                  ProcessingMode processingMode,
                                                  EffectMode effectMode, ProcessContext& context);

  // A new setting: built into the pending set, which the frame path adopts at its next call, at
  // once or by a fade. `values` is the reader's own copy.
  EffectsChange reload(RawView values, ProcessingMode processingMode, EffectMode effectMode);

  // Into both images. Each at least leastVolume, or all 0 when muted (the caller's business).
  static constexpr float leastVolume = 1e-5F;
  void setMasterVolume(float master) noexcept;
  void setVolumes(Volumes volumes) noexcept;
  float masterVolume() noexcept;

  std::uint32_t effectFlags() const noexcept { return effectFlags_; }  // under parameterLock

  // For readers of the image, under parameterLock. The frame path does not change what they show.
  ImageView currentImage() const noexcept { return ImageView(currentImage_); }
  ImageView pendingImage() const noexcept { return ImageView(pendingImage_); }
  MaskView currentMask() const noexcept { return MaskView(currentMask_); }
  MaskView pendingMask() const noexcept { return MaskView(pendingMask_); }
  FadeView fadeState() const noexcept { return FadeView(fadeState_); }

  // Gives all blocks back to the arena, the engine's too. Safe to call twice.
  void release() noexcept;

 private:
  bool allocateNext() noexcept;
  void restoreBlocks() noexcept;
  void refillNext() noexcept;
  void copyPendingToCurrent() noexcept;
  EffectsChange build(ProcessingMode processingMode, EffectMode effectMode);
  void adoptAtOnce();
  void fillContext(const StreamFormat& format, ProcessContext& context) noexcept;

  Arena& arena_;
  FrameEngine& engine_;
  LockBlock& lockBlock_;

  float* raw0_ = nullptr;
  float* raw1_ = nullptr;
  float* currentImage_ = nullptr;
  float* pendingImage_ = nullptr;
  float* fadeState_ = nullptr;
  std::uint8_t* currentMask_ = nullptr;
  std::uint8_t* pendingMask_ = nullptr;
  void* reserved_ = nullptr;

  std::uint8_t toggle_ = 0;  // set while a fade keeps the object's blocks in the engine's slots
  std::uint32_t effectFlags_ = 0;
};

}  // namespace vellumic
