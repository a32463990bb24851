// The three loops that carry the frames of a call through the engine. Real-time safe.
// Frames are interleaved; a count of 0 does nothing. In place (output == input) is allowed when
// both sides have the same number of channels.
#pragma once

#include <cstdint>

#include "parameters/Image.h"
#include "platform/Realtime.h"

namespace vellumic {

class FrameEngine;

struct FrameStream {
  float* output;
  const float* input;
  std::uint32_t frames;
  std::uint32_t inputChannels, outputChannels;  // beyond the 12 slots: dropped, or silent
};

// The set in force.
struct ParameterSet {
  ConstImageView image;
  ConstMaskView mask;
  FadeView fade;
};

// The usual path: channels go to slots by position, so that streams without speaker positions work.
// Upper slots are dropped when the output is narrower and silent when it is wider.
void forwardFrames(FrameEngine& engine, const FrameStream& stream,
                   const ParameterSet& set) noexcept VELLUMIC_NONBLOCKING;

// Both sets on the same frame, mixed by the fade's weight. When either runs the pipeline, channels
// travel by position as above. Otherwise by speaker: only the front pair, as the image's marks of
// other speakers are always 0 after a lock; output positions of other speakers keep what the
// buffer held.
void fadeFrames(FrameEngine& engine, const FrameStream& stream,
                const ParameterSet& set) noexcept VELLUMIC_NONBLOCKING;

// No effect; channels travel by speaker.
void passThroughFrames(FrameEngine& engine, const FrameStream& stream,
                       ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
