// Transform of 2B real samples for fast convolution, B a power of two.
//
// It evaluates the polynomial of the samples at B points t with t^B = -i, so a product of two
// spectra is a convolution of length 2B whose wrap-around changes sign; the B remaining points are
// conjugates and need no work. (Right-angle convolution: H. J. Nussbaumer, "Fast Fourier Transform
// and Convolution Algorithms", 1981, and R. E. Crandall, B. Fagin, "Discrete weighted transforms",
// Math. Comp. 62, 1994.) Overlap-save throws the wrapped half away, so the sign does no harm, and a
// complex transform of B points does the whole job without the unpacking of a half spectrum.
//
// The order of the B spectrum points is the one that comes out without any reordering; it is the
// same for every spectrum of one size. Inside, four transforms of B / 4 points run side by side,
// which keeps every loop at unit stride for the compiler's vectors.
//
// Thread: immutable after construction, any thread.
#pragma once

#include <vector>

#include "platform/Realtime.h"

namespace vellumic::resample {

class CDSPRealFFT {
 public:
  static constexpr int minBlockBits = 3;   // 16 samples a block
  static constexpr int maxBlockBits = 19;  // a million

  // blockBits: the block length B is 2 << blockBits.
  explicit CDSPRealFFT(int blockBits);

  int blockLength() const noexcept { return blockLength_; }

  // first, second: the two halves of the samples, B each.
  // spectrum: 2B doubles, B real parts and then B imaginary parts.
  void forward(const double* first, const double* second,
               double* spectrum) const noexcept VELLUMIC_NONBLOCKING;
  // second: the second half of the samples, times -B. Uses up the spectrum.
  void inverse(double* spectrum, double* second) const noexcept VELLUMIC_NONBLOCKING;

 private:
  struct Stage {
    int span;     // doubles that one group of butterflies covers
    int outputs;  // of each butterfly: 4 or 2
    std::vector<double> factors;
  };
  void split(const double* first, const double* second, double* re, double* im) const noexcept;
  void join(const double* re, const double* im, double* second) const noexcept;

  int blockLength_;
  std::vector<double> laneCos_;  // weights and first twiddles by point and lane
  std::vector<double> laneSin_;
  std::vector<Stage> stages_;
};

}  // namespace vellumic::resample
