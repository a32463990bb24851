// The clock of a parameter change, kept in the fade block:
// idle (phase 0), hold (-1) while the incoming set runs unheard, ramp (1), done.
#pragma once

#include "parameters/Image.h"
#include "platform/Realtime.h"

namespace vellumic {

// One frame of the clock. Hold and ramp lengths come from the image in force, the outgoing one. A
// block's first fade has a hold of 0, as the length is latched at the end of a ramp. Real-time
// safe.
void stepFade(FadeView fade, ConstImageView image,
              ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING;

// A run of frames, at the cost of one while no fade is requested.
void stepFade(FadeView fade, ConstImageView image, ConstMaskView mask,
              std::size_t frames) noexcept VELLUMIC_NONBLOCKING;

// A change is under way: it must end before another may start.
bool changeUnderWay(FadeView fade) noexcept VELLUMIC_NONBLOCKING;

// Back to idle; the hold latch stays.
void endFade(FadeView fade) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
