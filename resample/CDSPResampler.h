// A chain of block convolvers that shift the rate by powers of two and limit the band, ended by a
// fractional interpolator where the ratio needs one (see ChainPlan.h).
//
// Where the whole chain converts by a whole number from 3 to 12 and its response repeats from
// sample to sample of the lower rate (any such number up; 3, 4, 6, 8 and 12 down), it is measured
// once and computed by a single convolver: the same output but for rounding and the start, for a
// fraction of the work. docs/resampler.md has the figures.
#pragma once

#include <memory>
#include <vector>

#include "platform/Realtime.h"
#include "resample/CDSPBlockConvolver.h"
#include "resample/CDSPFracInterpolator.h"
#include "resample/CDSPProcessor.h"
#include "resample/ChainPlan.h"

namespace vellumic::resample {

// How a chain of a whole-number ratio is computed.
enum class WholeRatio { inOneStep, stageByStage };

template <class Interpolator>
class CDSPResampler : public CDSPProcessor {
 public:
  // Rates in Hz, transitionBand in percent, attenuation in dB; maxInput: samples of one call.
  // Throws what planChain does, std::invalid_argument for a maxInput below 1 and
  // std::length_error if one call could return more than 2^24 samples.
  CDSPResampler(double source, double destination, int maxInput, double transitionBand,
                double attenuation, PowerOfTwoChain powerOfTwo,
                WholeRatio wholeRatio = WholeRatio::inOneStep);

  int inputBeforeOutput(int nextInput) const noexcept override;
  int maxOutputLength(int maxInput) const noexcept override;
  void pace(std::span<int> counts) const noexcept VELLUMIC_NONBLOCKING override;
  void clear() noexcept override;
  // Inputs after which nothing older has a part in the state.
  int memory() const noexcept VELLUMIC_NONBLOCKING;
  // Goes on as if it had had the input of `leader`, which has the same rates. Real-time safe.
  void follow(const CDSPResampler& leader) noexcept VELLUMIC_NONBLOCKING;
  // Samples beyond maxInput are ignored. Equal rates: the output is the input.
  int process(const double* input, int count,
              const double*& output) noexcept VELLUMIC_NONBLOCKING override;

 private:
  struct Factors {
    int up;
    int down;
  };
  void appendStages(const ChainPlan& plan, double destination, double attenuation);
  Kernel measureKernel(Factors factors);

  int maxInput_;
  double reach_ = 0.0;  // inputs to either side that one output depends on
  std::vector<std::unique_ptr<CDSPBlockConvolver>> convolvers_;
  std::unique_ptr<Interpolator> interpolator_;  // null for a pure chain
};

extern template class CDSPResampler<CDSPFracInterpolator<24, 673>>;

}  // namespace vellumic::resample
