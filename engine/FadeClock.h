// The clock of a parameter change, kept in the fade block:
// idle (phase 0), hold (-1) while the incoming set runs unheard, ramp (1), done.
#pragma once

#include "parameters/Image.h"

namespace vellumic {

// One frame of the clock. Hold and ramp lengths come from the image in force, the outgoing one. A
// block's first fade has a hold of 0, as the length is latched at the end of a ramp. Real-time
// safe.
void stepFade(FadeView fade, ConstImageView image, ConstMaskView mask) noexcept;

// A run of frames, at the cost of one while no fade is requested.
void stepFade(FadeView fade, ConstImageView image, ConstMaskView mask, std::size_t frames) noexcept;

// A change is under way: it must end before another may start.
bool changeUnderWay(FadeView fade) noexcept;

// Back to idle; the hold latch stays.
void endFade(FadeView fade) noexcept;

}  // namespace vellumic
