#include "array/ActivityEstimator.h"

#include <cmath>
#include <limits>

namespace vellumic {
namespace {

constexpr float exponentCap = 25.0F;
constexpr float stagnation = 0.99F;  // of the smoothed probability; also the cap that it triggers
constexpr float startProbability = 0.5F;
constexpr float startNoise = 1e-5F;
constexpr float leastNoise = std::numeric_limits<float>::min();

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
  const auto P = power.col(0);
  const auto exponent = likelihoodSlope.value * P / noisePower + likelihoodBias.value;
  probability = likelihoodScale.value * exponent.min(exponentCap).exp();
  probability = probability / (probability + 1.0F);
  smoothedProbability += smoothingRate.value * (probability - smoothedProbability);
  for (Eigen::Index k = 0; k < probability.size(); ++k) {
    if (smoothedProbability[k] > stagnation && probability[k] > stagnation)
      probability[k] = stagnation;
  }
  noisePower += (1.0F - probability) * noiseRate.value * (P - noisePower);
  for (float& noise : noisePower) {
    if (noise < leastNoise) noise = leastNoise;
  }
}

}  // namespace vellumic
