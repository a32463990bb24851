#include "array/ActivityEstimator.h"

#include <cmath>

#include "array/kernels/Activity.h"

namespace vellumic {
namespace {

constexpr float startProbability = 0.5F;
constexpr float startNoise = 1e-5F;

float rateOf(float frameRate, float timeConstant) {
  return 1.0F - std::exp(-1.0F / (frameRate * timeConstant));
}

}  // namespace

ActivityEstimator::ActivityEstimator(int bins, float framesPerSecond) {
  binCount = bins;
  frameRate = framesPerSecond;
  smoothingRate = rateOf(frameRate, smoothingTimeConstant);
  noiseRate = rateOf(frameRate, noiseTimeConstant);
  init(false);
}

bool ActivityEstimator::init(bool /*resetChildren*/) {
  smoothedProbability.setConstant(binCount, startProbability);
  noisePower.setConstant(binCount, startNoise);
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
