// The loops of a fast Fourier transform over separate real and imaginary parts: decimation in
// frequency forward, decimation in time backward, so that neither needs reordering.
//
// Each loop runs over n < count neighbours, at unit stride and through pointers that do not
// overlap, for the compiler's vectors. w holds the twiddles as count cosines and count negative
// sines for each output but the first; with turned = false all of them are 1 and w is not read.
#pragma once

namespace vellumic::resample::butterflies {

// (outR, outI) = (re, im) times the twiddle, or times its conjugate.
template <bool turned>
inline void turn(double re, double im, const double* w, int at, int count, double& outR,
                 double& outI) noexcept {
  outR = turned ? re * w[at] - im * w[at + count] : re;
  outI = turned ? re * w[at + count] + im * w[at] : im;
}
template <bool turned>
inline void turnBack(double re, double im, const double* w, int at, int count, double& outR,
                     double& outI) noexcept {
  outR = turned ? re * w[at] + im * w[at + count] : re;
  outI = turned ? im * w[at] - re * w[at + count] : im;
}

template <bool turned>
void forward4(double* __restrict r0, double* __restrict r1, double* __restrict r2,
              double* __restrict r3, double* __restrict i0, double* __restrict i1,
              double* __restrict i2, double* __restrict i3, const double* __restrict w,
              int count) noexcept {
  for (int n = 0; n < count; ++n) {
    const double sumR = r0[n] + r2[n], sumI = i0[n] + i2[n];
    const double differenceR = r0[n] - r2[n], differenceI = i0[n] - i2[n];
    const double oddSumR = r1[n] + r3[n], oddSumI = i1[n] + i3[n];
    const double oddDifferenceR = r1[n] - r3[n], oddDifferenceI = i1[n] - i3[n];
    r0[n] = sumR + oddSumR;
    i0[n] = sumI + oddSumI;
    turn<turned>(differenceR + oddDifferenceI, differenceI - oddDifferenceR, w, n, count, r1[n],
                 i1[n]);
    turn<turned>(sumR - oddSumR, sumI - oddSumI, w, n + 2 * count, count, r2[n], i2[n]);
    turn<turned>(differenceR - oddDifferenceI, differenceI + oddDifferenceR, w, n + 4 * count,
                 count, r3[n], i3[n]);
  }
}

// The reverse of forward4, times 4.
template <bool turned>
void inverse4(double* __restrict r0, double* __restrict r1, double* __restrict r2,
              double* __restrict r3, double* __restrict i0, double* __restrict i1,
              double* __restrict i2, double* __restrict i3, const double* __restrict w,
              int count) noexcept {
  for (int n = 0; n < count; ++n) {
    double aR, aI, bR, bI, cR, cI;
    turnBack<turned>(r1[n], i1[n], w, n, count, aR, aI);
    turnBack<turned>(r2[n], i2[n], w, n + 2 * count, count, bR, bI);
    turnBack<turned>(r3[n], i3[n], w, n + 4 * count, count, cR, cI);
    const double sumR = r0[n] + bR, sumI = i0[n] + bI;
    const double differenceR = r0[n] - bR, differenceI = i0[n] - bI;
    const double oddSumR = aR + cR, oddSumI = aI + cI;
    const double oddDifferenceR = aR - cR, oddDifferenceI = aI - cI;
    r0[n] = sumR + oddSumR;
    i0[n] = sumI + oddSumI;
    r1[n] = differenceR - oddDifferenceI;
    i1[n] = differenceI + oddDifferenceR;
    r2[n] = sumR - oddSumR;
    i2[n] = sumI - oddSumI;
    r3[n] = differenceR + oddDifferenceI;
    i3[n] = differenceI - oddDifferenceR;
  }
}

inline void forward2(double* __restrict r0, double* __restrict r1, double* __restrict i0,
                     double* __restrict i1, const double* __restrict w, int count) noexcept {
  for (int n = 0; n < count; ++n) {
    const double differenceR = r0[n] - r1[n], differenceI = i0[n] - i1[n];
    r0[n] += r1[n];
    i0[n] += i1[n];
    turn<true>(differenceR, differenceI, w, n, count, r1[n], i1[n]);
  }
}

// The reverse of forward2, times 2.
inline void inverse2(double* __restrict r0, double* __restrict r1, double* __restrict i0,
                     double* __restrict i1, const double* __restrict w, int count) noexcept {
  for (int n = 0; n < count; ++n) {
    double aR, aI;
    turnBack<true>(r1[n], i1[n], w, n, count, aR, aI);
    r1[n] = r0[n] - aR;
    i1[n] = i0[n] - aI;
    r0[n] += aR;
    i0[n] += aI;
  }
}

}  // namespace vellumic::resample::butterflies
