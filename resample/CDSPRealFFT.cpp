#include "resample/CDSPRealFFT.h"

#include <cmath>
#include <numbers>

#include "resample/Butterflies.h"

namespace vellumic::resample {
namespace {

constexpr int lanes = 4;

// Twiddles of one stage over groups of `length` points: for each power the cosines, then the
// negative sines, each repeated for all lanes.
std::vector<double> twiddles(int length, int outputs) {
  std::vector<double> factors;
  for (int power = 1; power < outputs; ++power) {
    for (const bool sine : {false, true}) {
      for (int n = 0; n < length / outputs; ++n) {
        const double angle = 2.0 * std::numbers::pi * power * n / length;
        factors.insert(factors.end(), lanes, sine ? -std::sin(angle) : std::cos(angle));
      }
    }
  }
  return factors;
}

// cos and sin of pi / 8 and pi / 4: how the weights of the four quarters of a block differ.
constexpr double c1 = 0.92387953251128675613;
constexpr double s1 = 0.38268343236508977173;
constexpr double c2 = 0.5 * std::numbers::sqrt2;

}  // namespace

CDSPRealFFT::CDSPRealFFT(int blockBits) : blockLength_(2 << blockBits) {
  const int points = blockLength_ / lanes;
  for (int n = 0; n < points; ++n) {
    for (int lane = 0; lane < lanes; ++lane) {
      const double angle = std::numbers::pi * n * (1 + 4 * lane) / (2.0 * blockLength_);
      laneCos_.push_back(std::cos(angle));
      laneSin_.push_back(-std::sin(angle));
    }
  }
  // Groups of 4 points end the transform; one of 8 is halved before.
  int length = points;
  for (; length > 8; length /= 4) stages_.push_back({length * lanes, 4, twiddles(length, 4)});
  if (length == 8) stages_.push_back({length * lanes, 2, twiddles(length, 2)});
}

void CDSPRealFFT::forward(const double* first, const double* second,
                          double* spectrum) const noexcept VELLUMIC_NONBLOCKING {
  double* const re = spectrum;
  double* const im = spectrum + blockLength_;
  split(first, second, re, im);
  for (const Stage& stage : stages_) {
    const int part = stage.span / stage.outputs;
    const double* w = stage.factors.data();
    for (double *r = re, *i = im; r != im; r += stage.span, i += stage.span) {
      if (stage.outputs == 4) {
        butterflies::forward4<true>(r, r + part, r + 2 * part, r + 3 * part, i, i + part,
                                    i + 2 * part, i + 3 * part, w, part);
      } else {
        butterflies::forward2(r, r + part, i, i + part, w, part);
      }
    }
  }
  for (double *r = re, *i = im; r != im; r += 4 * lanes, i += 4 * lanes) {
    butterflies::forward4<false>(r, r + lanes, r + 2 * lanes, r + 3 * lanes, i, i + lanes,
                                 i + 2 * lanes, i + 3 * lanes, nullptr, lanes);
  }
}

void CDSPRealFFT::inverse(double* spectrum, double* second) const noexcept VELLUMIC_NONBLOCKING {
  double* const re = spectrum;
  double* const im = spectrum + blockLength_;
  for (double *r = re, *i = im; r != im; r += 4 * lanes, i += 4 * lanes) {
    butterflies::inverse4<false>(r, r + lanes, r + 2 * lanes, r + 3 * lanes, i, i + lanes,
                                 i + 2 * lanes, i + 3 * lanes, nullptr, lanes);
  }
  for (auto stage = stages_.rbegin(); stage != stages_.rend(); ++stage) {
    const int part = stage->span / stage->outputs;
    const double* w = stage->factors.data();
    for (double *r = re, *i = im; r != im; r += stage->span, i += stage->span) {
      if (stage->outputs == 4) {
        butterflies::inverse4<true>(r, r + part, r + 2 * part, r + 3 * part, i, i + part,
                                    i + 2 * part, i + 3 * part, w, part);
      } else {
        butterflies::inverse2(r, r + part, i, i + part, w, part);
      }
    }
  }
  join(re, im, second);
}

// z = first - i second, weighted, and the first radix-4 stage; its four outputs become the lanes.
void CDSPRealFFT::split(const double* __restrict first, const double* __restrict second,
                        double* __restrict re, double* __restrict im) const noexcept {
  const int quarter = blockLength_ / 4;
  const double* __restrict cosine = laneCos_.data();
  const double* __restrict sine = laneSin_.data();
  for (int n = 0; n < quarter; ++n) {
    const double aR = first[n], aI = -second[n];
    const double x1 = first[n + quarter], y1 = second[n + quarter];
    const double bR = x1 * c1 - y1 * s1, bI = -y1 * c1 - x1 * s1;
    const double x2 = first[n + 2 * quarter], y2 = second[n + 2 * quarter];
    const double cR = (x2 - y2) * c2, cI = -(y2 + x2) * c2;
    const double x3 = first[n + 3 * quarter], y3 = second[n + 3 * quarter];
    const double dR = x3 * s1 - y3 * c1, dI = -y3 * s1 - x3 * c1;

    const double sumR = aR + cR, sumI = aI + cI;
    const double differenceR = aR - cR, differenceI = aI - cI;
    const double oddSumR = bR + dR, oddSumI = bI + dI;
    const double oddDifferenceR = bR - dR, oddDifferenceI = bI - dI;
    const double laneR[lanes] = {sumR + oddSumR, differenceR + oddDifferenceI, sumR - oddSumR,
                                 differenceR - oddDifferenceI};
    const double laneI[lanes] = {sumI + oddSumI, differenceI - oddDifferenceR, sumI - oddSumI,
                                 differenceI + oddDifferenceR};
    for (int lane = 0; lane < lanes; ++lane) {
      const int at = n * lanes + lane;
      re[at] = laneR[lane] * cosine[at] - laneI[lane] * sine[at];
      im[at] = laneR[lane] * sine[at] + laneI[lane] * cosine[at];
    }
  }
}

// The reverse of split; only the second half is wanted, which is the imaginary part.
void CDSPRealFFT::join(const double* __restrict re, const double* __restrict im,
                       double* __restrict second) const noexcept {
  const int quarter = blockLength_ / 4;
  const double* __restrict cosine = laneCos_.data();
  const double* __restrict sine = laneSin_.data();
  for (int n = 0; n < quarter; ++n) {
    double laneR[lanes];
    double laneI[lanes];
    for (int lane = 0; lane < lanes; ++lane) {
      const int at = n * lanes + lane;
      laneR[lane] = re[at] * cosine[at] + im[at] * sine[at];
      laneI[lane] = im[at] * cosine[at] - re[at] * sine[at];
    }
    const double sumR = laneR[0] + laneR[2], sumI = laneI[0] + laneI[2];
    const double differenceR = laneR[0] - laneR[2], differenceI = laneI[0] - laneI[2];
    const double oddSumR = laneR[1] + laneR[3], oddSumI = laneI[1] + laneI[3];
    const double oddDifferenceR = laneR[1] - laneR[3], oddDifferenceI = laneI[1] - laneI[3];
    const double bR = differenceR - oddDifferenceI, bI = differenceI + oddDifferenceR;
    const double cR = sumR - oddSumR, cI = sumI - oddSumI;
    const double dR = differenceR + oddDifferenceI, dI = differenceI - oddDifferenceR;
    second[n] = sumI + oddSumI;
    second[n + quarter] = bR * s1 + bI * c1;
    second[n + 2 * quarter] = (cR + cI) * c2;
    second[n + 3 * quarter] = dR * c1 + dI * s1;
  }
}

}  // namespace vellumic::resample
