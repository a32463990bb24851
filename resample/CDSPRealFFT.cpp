#include "resample/CDSPRealFFT.h"

#include <cmath>
#include <numbers>

namespace vellumic::resample {

CDSPRealFFT::CDSPRealFFT(int blockBits)
    : kernels_(rightAngleKernels()), tables_(2 << blockBits, kernels_.lanes) {
  const int block = 2 << blockBits;
  for (const bool sine : {false, true})
    for (int n = 0; n < block; ++n) {
      const double angle = 0.5 * std::numbers::pi * n / block;
      weights_.push_back(sine ? -std::sin(angle) : std::cos(angle));
    }
  plan_ = {tables_.plan(), weights_.data()};
}

void CDSPRealFFT::forward(Scratch& scratch, const double* first, const double* second,
                          double* spectrum) const noexcept VELLUMIC_NONBLOCKING {
  kernels_.forward(plan_, scratch.view(), first, second, spectrum);
}

void CDSPRealFFT::inverse(Scratch& scratch, const double* spectrum,
                          double* second) const noexcept VELLUMIC_NONBLOCKING {
  kernels_.inverse(plan_, scratch.view(), spectrum, second);
}

}  // namespace vellumic::resample
