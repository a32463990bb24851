#include "resample/CDSPResampler.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vellumic::resample {
namespace {

constexpr double largestRatio = 1 << 20;
constexpr double mostOutputsOfACall = 1 << 24;
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
  ChainPlan plan{{}, source, true};
  double factor = 1.0;
  while (factor * destination * 4.0 <= source) {
    factor *= 2.0;
    const bool near = factor * destination * 4.0 > source;
    plan.stages.push_back({1, 2, 0.5, near ? nearSlope : farSlope});
  }
  const double frequency = factor * destination / source;
  const bool whole = powerOfTwo == PowerOfTwoChain::allowed && frequency == 0.5;
  plan.stages.push_back({1, whole ? 2 : 1, frequency, transitionBand});
  plan.reachedRate = whole ? destination : source / factor;
  plan.fractional = !whole;
  return plan;
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

template <class Interpolator>
CDSPResampler<Interpolator>::CDSPResampler(double source, double destination, int maxInput,
                                           double transitionBand, double attenuation,
                                           PowerOfTwoChain powerOfTwo)
    : maxInput_(maxInput) {
  if (maxInput < 1) throw std::invalid_argument("rate converter: maxInput below 1");
  const ChainPlan plan = planChain(source, destination, transitionBand, powerOfTwo);
  if (std::max(plan.reachedRate / source, 1.0) * maxInput > mostOutputsOfACall) {
    throw std::length_error("rate converter: too many outputs of one call");
  }
  int length = maxInput;
  double fraction = 0.0;
  for (const StagePlan& stage : plan.stages) {
    const FilterRequest request{stage.frequency, stage.transitionBand, attenuation,
                                static_cast<double>(stage.up), std::max(stage.up, stage.down)};
    convolvers_.push_back(std::make_unique<CDSPBlockConvolver>(CDSPFIRFilter::get(request),
                                                               stage.up, stage.down, length));
    length = convolvers_.back()->maxOutputLength(length);
    fraction = convolvers_.back()->latencyFraction();
  }
  if (plan.fractional) {
    interpolator_ = std::make_unique<Interpolator>(plan.reachedRate, destination, fraction, length);
  }
}

template <class Interpolator>
int CDSPResampler<Interpolator>::inputBeforeOutput(int nextInput) const noexcept {
  if (interpolator_) nextInput = interpolator_->inputBeforeOutput(nextInput);
  for (auto stage = convolvers_.rbegin(); stage != convolvers_.rend(); ++stage) {
    nextInput = (*stage)->inputBeforeOutput(nextInput);
  }
  return nextInput;
}

template <class Interpolator>
int CDSPResampler<Interpolator>::maxOutputLength(int maxInput) const noexcept {
  for (const auto& convolver : convolvers_) maxInput = convolver->maxOutputLength(maxInput);
  return interpolator_ ? interpolator_->maxOutputLength(maxInput) : maxInput;
}

template <class Interpolator>
void CDSPResampler<Interpolator>::clear() noexcept {
  for (const auto& convolver : convolvers_) convolver->clear();
  if (interpolator_) interpolator_->clear();
}

template <class Interpolator>
int CDSPResampler<Interpolator>::process(const double* input, int count,
                                         const double*& output) noexcept VELLUMIC_NONBLOCKING {
  count = std::clamp(count, 0, maxInput_);
  output = input;
  for (const auto& convolver : convolvers_) {
    count = convolver->process(output, count, output);
    if (count == 0) return 0;
  }
  return interpolator_ ? interpolator_->process(output, count, output) : count;
}

template class CDSPResampler<CDSPFracInterpolator<24, 673>>;

}  // namespace vellumic::resample
