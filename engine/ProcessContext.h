// The per-call record of one object: filled at lock, its buffer fields by every call.
//
// Sets are held through a pointer to a pointer, because a change of parameters exchanges the
// pointers. Thread: the real-time thread while locked, the control thread otherwise.
#pragma once

#include <cstdint>

namespace vellumic {

class Arena;
class FrameEngine;
struct LockBlock;

namespace buffer_flags {
inline constexpr std::uint32_t invalid = 0, valid = 1, silent = 2;
}

struct ProcessContext {
  LockBlock* lockBlock = nullptr;
  FrameEngine* engine = nullptr;
  Arena* arena = nullptr;
  float* inputBuffer = nullptr;
  float* outputBuffer = nullptr;
  std::uint32_t inputFrames = 0, outputFrames = 0;  // counts of connections; nothing reads them
  std::uint32_t inputChannels = 0, outputChannels = 0;
  std::uint32_t inputFlags = 0, outputFlags = 0;  // buffer_flags
  float** fadeSlot = nullptr;
  float** imageSlot = nullptr;
  float** pendingImageSlot = nullptr;
  float** rawSlot0 = nullptr;
  float** rawSlot1 = nullptr;
  void** reservedSlot = nullptr;
  std::uint8_t** maskSlot = nullptr;
  std::uint8_t** pendingMaskSlot = nullptr;
  std::uint8_t* toggle = nullptr;  // set while the engine's slots hold blocks of the object
  std::uint32_t inputValidFrames = 0, outputValidFrames = 0;
};

}  // namespace vellumic
