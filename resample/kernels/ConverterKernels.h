// The converter's inner loops, once per instruction set.
#pragma once

#include "platform/Realtime.h"

namespace vellumic::resample {

// A spectrum times another: points real parts, then as many imaginary parts each.
struct SpectrumProduct {
  const double* signal;
  const double* filter;
};

struct ConverterKernels {
  // sum: of count products, 2 * points doubles. points: a multiple of 8.
  void (*sumProducts)(const SpectrumProduct* products, int count, double* sum,
                      int points) noexcept VELLUMIC_NONBLOCKING;
  // Sum over i < taps of (c0[i] + r (c1[i] + r c2[i])) samples[i]; row holds c0, c1, c2, taps
  // doubles each, taps a multiple of 8.
  double (*interpolate)(const double* row, double r, const double* samples,
                        int taps) noexcept VELLUMIC_NONBLOCKING;
};
const ConverterKernels& converterKernels() noexcept VELLUMIC_NONBLOCKING;  // of the set in force

}  // namespace vellumic::resample
