#include "resample/CDSPResampler.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vellumic::resample {
namespace {

constexpr double mostOutputsOfACall = 1 << 24;
constexpr double largestWholeRatio = 12.0;  // 192000 to 16000

bool isWhole(double number) { return number == std::floor(number); }

// The whole number by which the chain's rate goes up or down, or 0. Down, the interpolator at its
// end must step by whole samples too: a response that alternates between outputs is not one kernel.
int wholeRatioOf(double source, double destination, const ChainPlan& plan) {
  const double ratio = std::max(source, destination) / std::min(source, destination);
  const bool repeats = destination > source || isWhole(plan.reachedRate / destination);
  return ratio <= largestWholeRatio && isWhole(ratio) && repeats ? static_cast<int>(ratio) : 0;
}

// Cuts both ends, whole periods at a time, where the taps no longer count: what goes adds up to
// less than -210 dB.
void trim(Kernel& kernel, int period) {
  constexpr double negligible = 3e-11;
  const auto size = [&] { return kernel.taps.size(); };
  double dropped = 0.0;
  while (kernel.delay >= 2 * period) {
    for (std::size_t n = 0; n < static_cast<std::size_t>(period); ++n) {
      dropped += std::abs(kernel.taps[n]) + std::abs(kernel.taps[size() - 1 - n]);
    }
    if (dropped > negligible) return;
    kernel.taps.erase(kernel.taps.begin(), kernel.taps.begin() + period);
    kernel.taps.resize(size() - static_cast<std::size_t>(period));
    kernel.delay -= period;
  }
}

}  // namespace

template <class Interpolator>
CDSPResampler<Interpolator>::CDSPResampler(double source, double destination, int maxInput,
                                           double transitionBand, double attenuation,
                                           PowerOfTwoChain powerOfTwo, WholeRatio wholeRatio)
    : maxInput_(maxInput) {
  if (maxInput < 1) throw std::invalid_argument("rate converter: maxInput below 1");
  const ChainPlan plan = planChain(source, destination, transitionBand, powerOfTwo);
  if (std::max(plan.reachedRate / source, 1.0) * maxInput > mostOutputsOfACall) {
    throw std::length_error("rate converter: too many outputs of one call");
  }
  const int ratio = wholeRatioOf(source, destination, plan);
  if (wholeRatio == WholeRatio::stageByStage || ratio < 3) {
    appendStages(plan, destination, attenuation);
    return;
  }
  const Factors factors = destination > source ? Factors{ratio, 1} : Factors{1, ratio};
  // No plain low-pass has three branches or more: the request names the measured kernel alone.
  const FilterRequest request{
      1.0 / ratio, transitionBand, attenuation, static_cast<double>(factors.up), ratio, powerOfTwo};
  auto filter = CDSPFIRFilter::get(request, [&] {
    CDSPResampler chain(source, destination, 1, transitionBand, attenuation, powerOfTwo,
                        WholeRatio::stageByStage);
    return chain.measureKernel(factors);
  });
  convolvers_.push_back(
      std::make_unique<CDSPBlockConvolver>(std::move(filter), factors.up, factors.down, maxInput));
}

template <class Interpolator>
void CDSPResampler<Interpolator>::appendStages(const ChainPlan& plan, double destination,
                                               double attenuation) {
  int length = maxInput_;
  double rate = 1.0;  // in parts of the source's
  double fraction = 0.0;
  for (const StagePlan& stage : plan.stages) {
    const FilterRequest request{stage.frequency, stage.transitionBand, attenuation,
                                static_cast<double>(stage.up), std::max(stage.up, stage.down)};
    auto filter = CDSPFIRFilter::get(request);
    reach_ += filter->delay() / (rate * stage.up);
    rate *= static_cast<double>(stage.up) / stage.down;
    convolvers_.push_back(
        std::make_unique<CDSPBlockConvolver>(std::move(filter), stage.up, stage.down, length));
    length = convolvers_.back()->maxOutputLength(length);
    fraction = convolvers_.back()->latencyFraction();
  }
  if (plan.fractional) {
    interpolator_ = std::make_unique<Interpolator>(plan.reachedRate, destination, fraction, length);
    reach_ += Interpolator::reach / rate;
  }
}

// The chain's response at the higher rate, from impulses at each place of a lower-rate period.
template <class Interpolator>
Kernel CDSPResampler<Interpolator>::measureKernel(Factors factors) {
  const int periods = static_cast<int>(std::ceil(reach_ / factors.down)) + 1;
  const int delay = (periods + 1) * std::max(factors.up, factors.down) - 1;
  Kernel kernel{std::vector<double>(static_cast<std::size_t>(2 * delay + 1)), delay};
  for (int place = 0; place < factors.down; ++place) {
    clear();
    const int impulseAt = periods * factors.down + place;
    const int outputs = (2 * periods + 1) * factors.up;
    for (int in = 0, out = 0; out < outputs; ++in) {
      const double sample = in == impulseAt ? 1.0 : 0.0;
      const double* result = nullptr;
      const int count = process(&sample, 1, result);
      for (int n = 0; n < count && out < outputs; ++n, ++out) {
        const int time = out * factors.down - impulseAt * factors.up;
        kernel.taps[static_cast<std::size_t>(delay + time)] = result[n];
      }
    }
  }
  trim(kernel, std::max(factors.up, factors.down));
  return kernel;
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
void CDSPResampler<Interpolator>::pace(std::span<int> counts) const noexcept VELLUMIC_NONBLOCKING {
  for (const auto& convolver : convolvers_) convolver->pace(counts);
  if (interpolator_) interpolator_->pace(counts);
}

template <class Interpolator>
int CDSPResampler<Interpolator>::memory() const noexcept VELLUMIC_NONBLOCKING {
  double inputs = 0.0, rate = 1.0;
  for (const auto& convolver : convolvers_) {
    inputs += convolver->memory() / rate;
    rate *= convolver->ratio();
  }
  if (interpolator_) inputs += Interpolator::ringLength / rate;
  return static_cast<int>(std::min(inputs, 1e9)) + 1;
}

template <class Interpolator>
void CDSPResampler<Interpolator>::follow(const CDSPResampler& leader) noexcept
    VELLUMIC_NONBLOCKING {
  for (std::size_t n = 0; n < convolvers_.size(); ++n)
    convolvers_[n]->follow(*leader.convolvers_[n]);
  if (interpolator_) interpolator_->follow(*leader.interpolator_);
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
