#include "array/ActivityEstimator.h"

#include "array/SmoothingRate.h"
#include "array/kernels/Activity.h"

namespace vellumic {
namespace {

constexpr float startProbability = 0.5F;
constexpr float startNoisePower = 1e-5F;

}  // namespace

ActivityEstimator::ActivityEstimator(int bins, float framesPerSecond) {
  binCount = bins;
  frameRate = framesPerSecond;
  smoothingRate = smoothingRateOf(frameRate, smoothingTimeConstant);
  noiseRate = smoothingRateOf(frameRate, noiseTimeConstant);
  init(false);
}

bool ActivityEstimator::init(bool /*resetChildren*/) {
  smoothedProbability.setConstant(binCount, startProbability);
  noisePower.setConstant(binCount, startNoisePower);
  return true;
}

void ActivityEstimator::process(const Input& power,
                                Output probability) noexcept VELLUMIC_NONBLOCKING {
  if (!enabled) return;
  activityKernels().update(power.data(), static_cast<int>(noisePower.size()),
                           {.likelihoodScale = likelihoodScale,
                            .likelihoodSlope = likelihoodSlope,
                            .likelihoodBias = likelihoodBias,
                            .smoothingRate = smoothingRate,
                            .noiseRate = noiseRate},
                           smoothedProbability.data(), noisePower.data(), probability.data());
}

}  // namespace vellumic
