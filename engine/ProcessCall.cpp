#include "engine/ProcessCall.h"

#include "engine/ProcessBlock.h"
#include "platform/FloatingPointMode.h"

namespace vellumic {

VELLUMIC_RT_CODE bool admitCall(const CallState& state, std::uint32_t inputs,
                                std::uint32_t outputs) noexcept VELLUMIC_NONBLOCKING {
  if (!state.initialized || !state.limits.accept(inputs, outputs)) return false;
  cutDenormals();
  return state.locked;
}

VELLUMIC_RT_CODE void runCall(ProcessContext& context, std::uint32_t inputs,
                              const StreamBuffer& input, std::uint32_t outputs,
                              StreamBuffer& output) noexcept VELLUMIC_NONBLOCKING {
  context.inputFrames = inputs;
  context.outputFrames = outputs;
  context.inputFlags = input.flags;
  context.inputValidFrames = input.validFrames;
  context.inputBuffer = input.samples;
  context.outputBuffer = output.samples;
  // What processBlock does not decide stays as the connection had it.
  context.outputFlags = output.flags;
  context.outputValidFrames = output.validFrames;
  processBlock(context);
  output.flags = context.outputFlags;
  output.validFrames = context.outputValidFrames;
}

}  // namespace vellumic
