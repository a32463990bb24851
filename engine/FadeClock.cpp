#include "engine/FadeClock.h"

#include "platform/Realtime.h"

namespace vellumic {
namespace {

constexpr float idle = 0.0F, hold = -1.0F, ramp = 1.0F;

}  // namespace

VELLUMIC_RT_CODE void stepFade(FadeView fade, ConstImageView image,
                               ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING {
  if (mask[Entry::fadeRequested] == 0) {
    fade[Fade::counter] = 0.0F;
    fade[Fade::phase] = idle;
    fade[Fade::weight] = 0.0F;
    return;
  }
  if (fade[Fade::phase] == hold) {
    fade[Fade::weight] = 0.0F;
    fade[Fade::counter] += 1.0F;
    if (fade[Fade::holdLatched] != 0.0F) {
      fade[Fade::holdLength] = image[Entry::holdLength];
      fade[Fade::holdLatched] = 0.0F;
    }
    if (fade[Fade::counter] > fade[Fade::holdLength]) {
      fade[Fade::phase] = ramp;
      fade[Fade::counter] = 0.0F;
    }
  }
  if (fade[Fade::phase] == ramp) {
    const float length = image[Entry::fadeLength];
    fade[Fade::counter] += 1.0F;
    fade[Fade::weight] = fade[Fade::counter] / length;
    if (fade[Fade::counter] >= length) {
      fade[Fade::done] = 1.0F;
      fade[Fade::phase] = idle;
      fade[Fade::weight] = 1.0F;
      fade[Fade::holdLatched] = 1.0F;
      fade[Fade::counter] = 0.0F;
    }
  }
}

VELLUMIC_RT_CODE void stepFade(FadeView fade, ConstImageView image, ConstMaskView mask,
                               std::size_t frames) noexcept VELLUMIC_NONBLOCKING {
  const bool repeats = mask[Entry::fadeRequested] != 0;
  for (std::size_t n = 0; n < (repeats ? frames : 1); ++n) stepFade(fade, image, mask);
}

VELLUMIC_RT_CODE bool changeUnderWay(FadeView fade) noexcept VELLUMIC_NONBLOCKING {
  return fade[Fade::phase] != idle || fade[Fade::done] != 0.0F;
}

VELLUMIC_RT_CODE void endFade(FadeView fade) noexcept VELLUMIC_NONBLOCKING {
  for (const Fade entry : {Fade::phase, Fade::weight, Fade::done, Fade::cleared})
    fade[entry] = 0.0F;
}

}  // namespace vellumic
