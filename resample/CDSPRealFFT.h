// Transform of 2B real samples for fast convolution, B a power of two.
//
// It evaluates the polynomial of the samples at B points t with t^B = -i, so a product of two
// spectra is a convolution of length 2B whose wrap-around changes sign; the B remaining points are
// conjugates and need no work. (Right-angle convolution: H. J. Nussbaumer, "Fast Fourier Transform
// and Convolution Algorithms", 1981, and R. E. Crandall, B. Fagin, "Discrete weighted transforms",
// Math. Comp. 62, 1994.) Overlap-save throws the wrapped half away, so the sign does no harm, and a
// complex transform of B points does the whole job without the unpacking of a half spectrum.
//
// The complex transform is that of spectra/kernels, the weights are part of its first and last
// pass.
//
// Thread: immutable after construction, any thread, each with scratch of its own. The instruction
// set is that in force at construction; spectra of all sets are alike.
#pragma once

#include "platform/Realtime.h"
#include "spectra/TransformTables.h"

namespace vellumic::resample {

class CDSPRealFFT {
 public:
  static constexpr int minBlockBits = 3;   // 16 samples a block
  static constexpr int maxBlockBits = 19;  // a million

  using Scratch = ScratchMemory<double>;  // for transforms of one block length, given to Scratch()

  // blockBits: the block length B is 2 << blockBits.
  explicit CDSPRealFFT(int blockBits);

  int blockLength() const noexcept { return plan_.complex.points; }

  // first, second: the two halves of the samples, B each.
  // spectrum: 2B doubles, B real parts and then B imaginary parts.
  void forward(Scratch& scratch, const double* first, const double* second,
               double* spectrum) const noexcept VELLUMIC_NONBLOCKING;
  // second: the second half of the samples, times -B.
  void inverse(Scratch& scratch, const double* spectrum,
               double* second) const noexcept VELLUMIC_NONBLOCKING;

 private:
  const RightAngleKernels& kernels_;
  ComplexTables<double> tables_;
  AlignedVector<double> weights_;
  RightAnglePlan plan_;
};

}  // namespace vellumic::resample
