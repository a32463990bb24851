// Which stages a pair of rates takes.
//
// Down by two or more: halve while four times the wanted rate still fits, then cut at the wanted
// band. Otherwise: double once (cutting at the lower of the two bands) and on until the wanted
// rate is reached. So an interpolator at the end always sees a signal in the lower half of its
// band.
#pragma once

#include <vector>

namespace vellumic::resample {

// Whether a ratio of exactly a power of two may do without the interpolator.
enum class PowerOfTwoChain { forbidden, allowed };

// One convolver: frequency is the stop-band edge as a part of the Nyquist frequency at the stage's
// higher rate, transitionBand the percentage of it below that the slope takes.
struct StagePlan {
  int up;
  int down;
  double frequency;
  double transitionBand;
  bool operator==(const StagePlan&) const = default;
};

struct ChainPlan {
  std::vector<StagePlan> stages;
  double reachedRate;  // Hz, behind the last convolver
  bool fractional;     // from reachedRate an interpolator goes on
};

// Rates in Hz, transitionBand in percent. Equal rates need no stage.
// Throws std::invalid_argument for rates that are not finite and above 0 or lie more than a factor
// of 2^18 apart, and for a transition band outside 0.5 to 45 percent.
ChainPlan planChain(double source, double destination, double transitionBand,
                    PowerOfTwoChain powerOfTwo);

}  // namespace vellumic::resample
