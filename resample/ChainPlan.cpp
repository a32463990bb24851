#include "resample/ChainPlan.h"

#include <cmath>
#include <stdexcept>
#include <utility>

namespace vellumic::resample {
namespace {

constexpr double largestRatio = 1 << 18;
// Slopes of the stages that only shift the rate: the signal fills at most a half of their band
// next to the wanted rate and a quarter farther away, so that their filters can be short.
constexpr double nearSlope = 34.0;
constexpr double farSlope = 45.0;

void check(double source, double destination, double transitionBand) {
  const double ratio = destination / source;
  const bool valid = std::isfinite(source) && std::isfinite(destination) && source > 0.0 &&
                     destination > 0.0 && ratio <= largestRatio && ratio >= 1.0 / largestRatio &&
                     transitionBand >= 0.5 && transitionBand <= 45.0;
  if (!valid) throw std::invalid_argument("rate converter: rates or transition band out of range");
}

ChainPlan planDown(double source, double destination, double transitionBand,
                   PowerOfTwoChain powerOfTwo) {
  std::vector<StagePlan> stages;
  double factor = 1.0;
  while (factor * destination * 4.0 <= source) {
    factor *= 2.0;
    const bool near = factor * destination * 4.0 > source;
    stages.push_back({1, 2, 0.5, near ? nearSlope : farSlope});
  }
  const double frequency = factor * destination / source;
  const bool whole = powerOfTwo == PowerOfTwoChain::allowed && frequency == 0.5;
  stages.push_back({1, whole ? 2 : 1, frequency, transitionBand});
  return {std::move(stages), whole ? destination : source / factor, !whole};
}

ChainPlan planUp(double source, double destination, double transitionBand,
                 PowerOfTwoChain powerOfTwo) {
  const double frequency = destination >= source ? 0.5 : destination * 0.5 / source;
  ChainPlan plan{{{2, 1, frequency, transitionBand}}, source * 2.0, true};
  while (plan.reachedRate < destination) {
    plan.stages.push_back({2, 1, 0.5, plan.stages.size() == 1 ? nearSlope : farSlope});
    plan.reachedRate *= 2.0;
  }
  const bool whole = plan.reachedRate == destination;
  plan.fractional = !(whole && powerOfTwo == PowerOfTwoChain::allowed);
  return plan;
}

}  // namespace

ChainPlan planChain(double source, double destination, double transitionBand,
                    PowerOfTwoChain powerOfTwo) {
  check(source, destination, transitionBand);
  if (source == destination) return {{}, source, false};
  const auto plan = destination * 2.0 <= source ? planDown : planUp;
  return plan(source, destination, transitionBand, powerOfTwo);
}

}  // namespace vellumic::resample
