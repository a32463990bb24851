#include "engine/ParameterSets.h"

#include <algorithm>
#include <cstring>

#include "engine/Arena.h"
#include "engine/FadeClock.h"
#include "engine/FrameEngine.h"
#include "engine/PrepareImage.h"
#include "engine/SwapSets.h"

namespace vellumic {
namespace {

constexpr std::size_t rawBytes = rawCount * sizeof(float);
constexpr std::size_t imageBytes = imageSize * sizeof(float);
constexpr std::size_t maskBytes = imageSize;
constexpr std::size_t fadeBytes = fadeBlockSize * sizeof(float);
constexpr std::size_t reservedBytes = 624;  // handed round and swapped, never read

template <class Block>
bool take(Arena& arena, Block*& block, std::size_t bytes) noexcept {
  block = static_cast<Block*>(arena.allocate(bytes));
  return block != nullptr;
}

template <class Block>
void giveBack(Arena& arena, Block*& block) noexcept {
  arena.release(block);
  block = nullptr;
}

}  // namespace

ParameterSets::ParameterSets(Arena& arena, FrameEngine& engine, LockBlock& lockBlock) noexcept
    : arena_(arena), engine_(engine), lockBlock_(lockBlock) {}

ParameterSets::~ParameterSets() { release(); }

bool ParameterSets::allocate() noexcept {
  if (allocated()) return true;
  const bool all = take(arena_, raw0_, rawBytes) && take(arena_, raw1_, rawBytes) &&
                   take(arena_, currentImage_, imageBytes) &&
                   take(arena_, pendingImage_, imageBytes) && take(arena_, fadeState_, fadeBytes) &&
                   take(arena_, currentMask_, maskBytes) && take(arena_, pendingMask_, maskBytes) &&
                   take(arena_, reserved_, reservedBytes);
  if (!all) release();
  return all;
}

void ParameterSets::settingRead() noexcept {
  const LockScope scope(lockBlock_.parameterLock);
  lockBlock_.pending = 0;
}

EffectsChange ParameterSets::build(ProcessingMode processingMode, EffectMode effectMode) {
  const std::uint32_t before = effectFlags_;
  effectFlags_ = buildImage(engine_, rawParameters(), pendingImage(), pendingMask(), processingMode,
                            effectMode);
  return {.before = before, .after = effectFlags_};
}

EffectsChange ParameterSets::initialize(ProcessingMode processingMode, EffectMode effectMode) {
  const LockScope scope(lockBlock_.parameterLock);
  const ImageView image = pendingImage();
  image[Entry::inputChannels] = 2.0F;
  image[Entry::outputChannels] = 2.0F;
  image[Entry::sampleRate] = 48000.0F;
  image[Entry::constantTen] = 10.0F;
  storeMasterVolume(pendingImage_, 1.0F);
  const EffectsChange change = build(processingMode, effectMode);
  adoptAtOnce();
  copyPendingToCurrent();
  return change;
}

// No frame runs: what the build replaced can go, too.
void ParameterSets::adoptAtOnce() {
  engine_.adopt(false);
  engine_.handover.pipeline.freeRetired();
}

void ParameterSets::proposeRate(float sampleRate) noexcept {
  const LockScope scope(lockBlock_.parameterLock);
  if (!allocated()) return;
  currentImage()[Entry::sampleRate] = sampleRate;
  pendingImage()[Entry::sampleRate] = sampleRate;
}

std::optional<EffectsChange> ParameterSets::lock(const StreamFormat& format,
                                                 ProcessingMode processingMode,
                                                 EffectMode effectMode, ProcessContext& context) {
  const LockScope scope(lockBlock_.parameterLock);
  if (!allocateNext()) return std::nullopt;
  restoreBlocks();
  const ImageView image = pendingImage();
  image[Entry::inputChannels] = static_cast<float>(format.inputChannels);
  image[Entry::outputChannels] = static_cast<float>(format.outputChannels);
  image[Entry::sampleRate] = format.sampleRate;
  // A reload may have built for another mode; the stream is the class's own again.
  image[Entry::effectMode] = static_cast<float>(effectMode);
  engine_.inputIndex = slotMapOf(format.inputChannels, format.inputMask);
  engine_.outputIndex = slotMapOf(format.outputChannels, format.outputMask);
  engine_.arena = &arena_;

  const bool usesLoopback = prepareImage(engine_, fadeState(), image, pendingMask());
  const EffectsChange change = build(processingMode, effectMode);
  adoptAtOnce();
  if (usesLoopback) engine_.pipeline.startLoopback();
  copyPendingToCurrent();

  endFade(fadeState());
  fadeState()[Fade::counter] = 0.0F;
  refillNext();
  fillContext(format, context);
  return change;
}

EffectsChange ParameterSets::reload(RawView values, ProcessingMode processingMode,
                                    EffectMode effectMode) {
  const LockScope scope(lockBlock_.parameterLock);
  std::ranges::copy(values, raw1_);
  const EffectsChange change = build(processingMode, effectMode);
  lockBlock_.pending = 1;
  return change;
}

void ParameterSets::setMasterVolume(float master) noexcept {
  const LockScope scope(lockBlock_.parameterLock);
  if (!allocated()) return;
  storeMasterVolume(currentImage_, master);
  storeMasterVolume(pendingImage_, master);
}

void ParameterSets::setVolumes(Volumes volumes) noexcept {
  const LockScope scope(lockBlock_.parameterLock);
  if (!allocated()) return;
  storeVolumes(currentImage_, volumes);
  storeVolumes(pendingImage_, volumes);
}

float ParameterSets::masterVolume() noexcept {
  const LockScope scope(lockBlock_.parameterLock);
  return allocated() ? loadVolumes(currentImage_).master : 0.0F;
}

bool ParameterSets::allocateNext() noexcept {
  if (engine_.nextImage != nullptr) return true;
  const bool all = take(arena_, engine_.nextImage, imageBytes) &&
                   take(arena_, engine_.nextFadeState, fadeBytes) &&
                   take(arena_, engine_.nextReserved, reservedBytes) &&
                   take(arena_, engine_.nextMask, maskBytes);
  if (!all) {
    giveBack(arena_, engine_.nextImage);
    giveBack(arena_, engine_.nextFadeState);
    giveBack(arena_, engine_.nextReserved);
    giveBack(arena_, engine_.nextMask);
  }
  return all;
}

// Undoes the first exchange of a fade that an unlock cut short.
void ParameterSets::restoreBlocks() noexcept {
  if (toggle_ != 0) swapSets(engine_, nullptr, &pendingImage_, &pendingMask_, nullptr, toggle_);
}

// The incoming set starts as a copy of the one in force: zeros would switch the effect off at the
// fade after next.
void ParameterSets::refillNext() noexcept {
  std::memcpy(engine_.nextImage, currentImage_, imageBytes);
  std::memcpy(engine_.nextMask, currentMask_, maskBytes);
  std::memset(engine_.nextFadeState, 0, fadeBytes);
  engine_.nextRunsPipeline = engine_.runsPipeline;
}

void ParameterSets::copyPendingToCurrent() noexcept {
  std::memcpy(currentImage_, pendingImage_, imageBytes);
  std::memcpy(currentMask_, pendingMask_, maskBytes);
  engine_.runsPipeline = engine_.latestRunsPipeline();
}

void ParameterSets::fillContext(const StreamFormat& format, ProcessContext& context) noexcept {
  context = ProcessContext{.lockBlock = &lockBlock_,
                           .engine = &engine_,
                           .arena = &arena_,
                           .inputChannels = format.inputChannels,
                           .outputChannels = format.outputChannels,
                           .fadeSlot = &fadeState_,
                           .imageSlot = &currentImage_,
                           .pendingImageSlot = &pendingImage_,
                           .rawSlot0 = &raw0_,
                           .rawSlot1 = &raw1_,
                           .reservedSlot = &reserved_,
                           .maskSlot = &currentMask_,
                           .pendingMaskSlot = &pendingMask_,
                           .toggle = &toggle_};
}

void ParameterSets::release() noexcept {
  const LockScope scope(lockBlock_.parameterLock);
  if (engine_.nextImage != nullptr) restoreBlocks();
  giveBack(arena_, raw0_);
  giveBack(arena_, raw1_);
  giveBack(arena_, currentImage_);
  giveBack(arena_, pendingImage_);
  giveBack(arena_, fadeState_);
  giveBack(arena_, currentMask_);
  giveBack(arena_, pendingMask_);
  giveBack(arena_, reserved_);
  giveBack(arena_, engine_.nextImage);
  giveBack(arena_, engine_.nextFadeState);
  giveBack(arena_, engine_.nextReserved);
  giveBack(arena_, engine_.nextMask);
}

}  // namespace vellumic
