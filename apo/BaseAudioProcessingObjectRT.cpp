// What the real-time thread enters. The build moves the whole of this file, the thunk through which
// the audio engine reaches APOProcess included, to RT_CODE: that one takes no attribute.
#include "apo/BaseAudioProcessingObject.h"

namespace vellumic {

void CBaseAudioProcessingObject::APOProcess(UINT32 inputCount, APO_CONNECTION_PROPERTY** inputs,
                                            UINT32 outputCount,
                                            APO_CONNECTION_PROPERTY** outputs) noexcept {
  const CallState state{.initialized = isInitialized.load(std::memory_order_acquire),
                        .locked = isLocked.load(std::memory_order_acquire),
                        .limits = connectionLimits()};
  if (!admitCall(state, inputCount, outputCount)) return;
  const APO_CONNECTION_PROPERTY& in = *inputs[0];
  APO_CONNECTION_PROPERTY& out = *outputs[0];
  const StreamBuffer input{.samples = reinterpret_cast<float*>(in.pBuffer),
                           .validFrames = in.u32ValidFrameCount,
                           .flags = static_cast<std::uint32_t>(in.u32BufferFlags)};
  StreamBuffer output{.samples = reinterpret_cast<float*>(out.pBuffer),
                      .validFrames = out.u32ValidFrameCount,
                      .flags = static_cast<std::uint32_t>(out.u32BufferFlags)};
  runCall(context, inputCount, input, outputCount, output);
  out.u32BufferFlags = static_cast<APO_BUFFER_FLAGS>(output.flags);
  out.u32ValidFrameCount = output.validFrames;
}

UINT32 CBaseAudioProcessingObject::CalcInputFrames(UINT32 outputFrames) noexcept {
  return outputFrames;
}

UINT32 CBaseAudioProcessingObject::CalcOutputFrames(UINT32 inputFrames) noexcept {
  return inputFrames;
}

ConnectionLimits CBaseAudioProcessingObject::connectionLimits() const noexcept {
  return {.minInputs = registrationProperties->u32MinInputConnections,
          .maxInputs = registrationProperties->u32MaxInputConnections,
          .minOutputs = registrationProperties->u32MinOutputConnections,
          .maxOutputs = registrationProperties->u32MaxOutputConnections};
}

}  // namespace vellumic
