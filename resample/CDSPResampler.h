// A chain of block convolvers that shift the rate by powers of two and limit the band, ended by a
// fractional interpolator where the ratio needs one.
//
// Down by two or more: halve while four times the wanted rate still fits, then cut at the wanted
// band. Otherwise: double once (cutting at the lower of the two bands) and on until the wanted
// rate is reached. So the interpolator always sees a signal in the lower half of its band.
#pragma once

#include <memory>
#include <vector>

#include "resample/CDSPBlockConvolver.h"
#include "resample/CDSPFracInterpolator.h"
#include "resample/CDSPProcessor.h"

namespace vellumic::resample {

// Whether a ratio of exactly a power of two may do without the interpolator.
enum class PowerOfTwoChain { forbidden, allowed };

// One convolver of a chain: frequency is the stop-band edge as a part of the Nyquist frequency at
// the stage's higher rate, transitionBand the percentage of it below that the slope takes.
struct StagePlan {
  int up;
  int down;
  double frequency;
  double transitionBand;
};
struct ChainPlan {
  std::vector<StagePlan> stages;
  double reachedRate;  // Hz, behind the last convolver
  bool fractional;     // from reachedRate an interpolator goes on
};

// Throws std::invalid_argument for rates that are not finite and above 0 or lie more than a factor
// of 2^20 apart, and for a transition band outside 0.5 to 45 percent.
ChainPlan planChain(double source, double destination, double transitionBand,
                    PowerOfTwoChain powerOfTwo);

template <class Interpolator>
class CDSPResampler : public CDSPProcessor {
 public:
  CDSPResampler(double source, double destination, int maxInput, double transitionBand,
                double attenuation, PowerOfTwoChain powerOfTwo);

  int inputBeforeOutput(int nextInput) const noexcept override;
  int maxOutputLength(int maxInput) const noexcept override;
  void clear() noexcept override;
  // Samples beyond maxInput are ignored.
  int process(const double* input, int count,
              const double*& output) noexcept VELLUMIC_NONBLOCKING override;

 private:
  int maxInput_;
  std::vector<std::unique_ptr<CDSPBlockConvolver>> convolvers_;
  std::unique_ptr<Interpolator> interpolator_;  // null for a pure chain
};

extern template class CDSPResampler<CDSPFracInterpolator<24, 673>>;

}  // namespace vellumic::resample
