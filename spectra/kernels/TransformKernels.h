// Fast Fourier transforms in vector registers, once per instruction set.
//
// A real transform of n samples is a complex one of n / 2 points, seen as even samples + i odd
// samples, and a pass over its spectrum that takes the two apart. The complex transform of N points
// on registers of L lanes:
//   1. decimation in frequency by L: column n of N / L gives L values, its "lanes";
//   2. L transforms of N / L points, one per lane, side by side: every load is a whole register,
//      every twiddle one number for all lanes. Radix 8, 5, 4, 3 and 2 passes that leave their
//      results in order (T. G. Stockham; see P. N. Swarztrauber, "FFT algorithms for vector
//      computers", Parallel Computing 1, 1984).
// Lane k of result m is frequency m L + k: the spectrum comes out in order without a further pass.
// An inverse is the same transform with real and imaginary parts exchanged on both ends.
//
// Between the passes a register of real parts stands beside its register of imaginary parts.
#pragma once

#include "platform/Realtime.h"

namespace vellumic {

// One pass of step 2. Numbers of registers: `rows` groups of `columns` neighbours share twiddles,
// which stand as radix - 1 complex numbers per row. The last pass has one row and no twiddles.
template <class Real>
struct TransformPass {
  int radix;
  int rows;
  int columns;
  const Real* twiddles;
};

template <class Real>
struct ComplexPlan {
  static constexpr int mostPasses = 16;
  int points;                // N, a multiple of the lanes
  const Real* laneTwiddles;  // of step 1: see LaneTwiddles in TransformTables.cpp
  int passCount;             // at least one
  TransformPass<Real> passes[mostPasses];
};

// Scratch of a transform: two buffers of this many numbers, at multiples of 64 bytes.
constexpr int scratchLength(int points) { return 2 * points + 32; }
template <class Real>
struct TransformScratch {
  Real *first, *second;
};

// n real samples, n / 2 points. The half spectrum goes in and out as planes of n / 2 + 1 real and
// imaginary parts or as n / 2 + 1 pairs. Nothing may overlap.
struct RealPlan {
  ComplexPlan<float> half;
  const float* twiddles;  // exp(-2 pi i k / n), k to n / 4: cosines, then as many negative sines
};
struct RealTransformKernels {
  int lanes;
  void (*forward)(const RealPlan&, TransformScratch<float>, const float* samples, float* re,
                  float* im) noexcept VELLUMIC_NONBLOCKING;
  void (*forwardPairs)(const RealPlan&, TransformScratch<float>, const float* samples,
                       float* bins) noexcept VELLUMIC_NONBLOCKING;
  void (*inverse)(const RealPlan&, TransformScratch<float>, const float* re, const float* im,
                  float* samples) noexcept VELLUMIC_NONBLOCKING;
  void (*inversePairs)(const RealPlan&, TransformScratch<float>, const float* bins,
                       float* samples) noexcept VELLUMIC_NONBLOCKING;
};
// Of the set in force. n is a multiple of 2 lanes and at least 4 lanes.
const RealTransformKernels& realTransformKernels() noexcept VELLUMIC_NONBLOCKING;

// Right-angle transform of 2 B real samples for fast convolution (resample/CDSPRealFFT.h): B
// points.
struct RightAnglePlan {
  ComplexPlan<double> complex;
  const double* weights;  // exp(-pi i n / (2 B)): B cosines, then B negative sines
};
struct RightAngleKernels {
  int lanes;
  // first, second: B samples each. spectrum: B real parts, then B imaginary parts.
  void (*forward)(const RightAnglePlan&, TransformScratch<double>, const double* first,
                  const double* second, double* spectrum) noexcept VELLUMIC_NONBLOCKING;
  void (*inverse)(const RightAnglePlan&, TransformScratch<double>, const double* spectrum,
                  double* second) noexcept VELLUMIC_NONBLOCKING;
};
const RightAngleKernels& rightAngleKernels() noexcept VELLUMIC_NONBLOCKING;  // of the set in force

}  // namespace vellumic
