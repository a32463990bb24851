#include "platform/KernelBuild.h"
// KernelBuild.h first: it names the set.
#include "array/kernels/Activity.h"
#include "array/kernels/Lanes.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

constexpr float exponentCap = 25.0F;
constexpr float stagnation = 0.99F;  // of the smoothed probability; also the cap that it triggers
constexpr float leastNoise = 1.17549435e-38F;  // the smallest normal float

void update(const float* power, int bins, const ActivityConstants& constants, float* smoothed,
            float* noise, float* probability) noexcept VELLUMIC_NONBLOCKING {
  const Floats one(1.0F), cap(exponentCap), stagnant(stagnation), least(leastNoise);
  const Floats scale(constants.likelihoodScale), slope(constants.likelihoodSlope),
      bias(constants.likelihoodBias);
  const Floats smoothingRate(constants.smoothingRate), noiseRate(constants.noiseRate);
  forLanes(bins, [=](auto lanes, int k) {
    const Floats P = lanes.load(power + k), N = lanes.load(noise + k);
    const Floats exponent = slope * P / N + bias;
    // Comparisons, not minima: what is not a number stays so.
    const Floats likelihood = scale * exp(select(exponent > cap, cap, exponent));
    Floats p = likelihood / (likelihood + one);
    Floats s = lanes.load(smoothed + k);
    s += smoothingRate * (p - s);
    lanes.store(smoothed + k, s);
    p = select((s > stagnant) && (p > stagnant), stagnant, p);
    lanes.store(probability + k, p);
    const Floats tracked = N + (one - p) * noiseRate * (P - N);
    lanes.store(noise + k, select(tracked < least, least, tracked));
  });
}

}  // namespace

const ActivityKernels activity{update};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
