// What one call of the audio engine does around processBlock: entry checks, control bits, and the
// hand-over of buffers, flags and counts. Thread: real-time.
#pragma once

#include <cstdint>

#include "engine/ProcessContext.h"
#include "platform/Realtime.h"

namespace vellumic {

struct ConnectionLimits {
  std::uint32_t minInputs = 1, maxInputs = 1, minOutputs = 1, maxOutputs = 1;

  // Each count within its limits, and both equal.
  constexpr bool accept(std::uint32_t inputs, std::uint32_t outputs) const noexcept {
    return inputs >= minInputs && inputs <= maxInputs && outputs >= minOutputs &&
           outputs <= maxOutputs && inputs == outputs;
  }
};

struct CallState {
  bool initialized = false, locked = false;
  ConnectionLimits limits;
};

struct StreamBuffer {
  float* samples;  // interleaved
  std::uint32_t validFrames;
  std::uint32_t flags;  // buffer_flags
};

// False: return at once, output untouched. The control bits are set, and stay set, on every call
// with acceptable connections, also when the object is not locked.
[[nodiscard]] bool admitCall(const CallState& state, std::uint32_t inputs,
                             std::uint32_t outputs) noexcept VELLUMIC_NONBLOCKING;

// After a bad input flag the output keeps its flags and count.
void runCall(ProcessContext& context, std::uint32_t inputs, const StreamBuffer& input,
             std::uint32_t outputs, StreamBuffer& output) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
