#include "resample/CDSPRealFFT.h"

#include <cmath>
#include <numbers>
#include <utility>

namespace vellumic::resample {
namespace {

constexpr int lanes = 4;

// Butterflies before twiddles (decimation in frequency), on `quarter` neighbours.
void forwardStage(double* __restrict r0, double* __restrict r1, double* __restrict r2,
                  double* __restrict r3, double* __restrict i0, double* __restrict i1,
                  double* __restrict i2, double* __restrict i3, const double* __restrict w,
                  int quarter) noexcept {
  for (int n = 0; n < quarter; ++n) {
    const double sumR = r0[n] + r2[n], sumI = i0[n] + i2[n];
    const double differenceR = r0[n] - r2[n], differenceI = i0[n] - i2[n];
    const double oddSumR = r1[n] + r3[n], oddSumI = i1[n] + i3[n];
    const double oddDifferenceR = r1[n] - r3[n], oddDifferenceI = i1[n] - i3[n];
    const double aR = differenceR + oddDifferenceI, aI = differenceI - oddDifferenceR;
    const double bR = sumR - oddSumR, bI = sumI - oddSumI;
    const double cR = differenceR - oddDifferenceI, cI = differenceI + oddDifferenceR;
    r0[n] = sumR + oddSumR;
    i0[n] = sumI + oddSumI;
    r1[n] = aR * w[n] - aI * w[n + quarter];
    i1[n] = aR * w[n + quarter] + aI * w[n];
    r2[n] = bR * w[n + 2 * quarter] - bI * w[n + 3 * quarter];
    i2[n] = bR * w[n + 3 * quarter] + bI * w[n + 2 * quarter];
    r3[n] = cR * w[n + 4 * quarter] - cI * w[n + 5 * quarter];
    i3[n] = cR * w[n + 5 * quarter] + cI * w[n + 4 * quarter];
  }
}

// The reverse of forwardStage, times 4.
void inverseStage(double* __restrict r0, double* __restrict r1, double* __restrict r2,
                  double* __restrict r3, double* __restrict i0, double* __restrict i1,
                  double* __restrict i2, double* __restrict i3, const double* __restrict w,
                  int quarter) noexcept {
  for (int n = 0; n < quarter; ++n) {
    const double aR = r1[n] * w[n] + i1[n] * w[n + quarter];
    const double aI = i1[n] * w[n] - r1[n] * w[n + quarter];
    const double bR = r2[n] * w[n + 2 * quarter] + i2[n] * w[n + 3 * quarter];
    const double bI = i2[n] * w[n + 2 * quarter] - r2[n] * w[n + 3 * quarter];
    const double cR = r3[n] * w[n + 4 * quarter] + i3[n] * w[n + 5 * quarter];
    const double cI = i3[n] * w[n + 4 * quarter] - r3[n] * w[n + 5 * quarter];
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

// The smallest stage, its own inverse but for the factor 2.
void radix2Stage(double* values, int count) noexcept {
  for (int base = 0; base < count; base += 2 * lanes) {
    double* low = values + base;
    double* high = low + lanes;
    for (int lane = 0; lane < lanes; ++lane) {
      const double difference = low[lane] - high[lane];
      low[lane] += high[lane];
      high[lane] = difference;
    }
  }
}

// cos and sin of pi / 8 and pi / 4: how the weights of the four quarters of a block differ.
constexpr double c1 = 0.92387953251128675613;
constexpr double s1 = 0.38268343236508977173;
constexpr double c2 = 0.5 * std::numbers::sqrt2;

}  // namespace

CDSPRealFFT::CDSPRealFFT(int blockBits)
    : blockLength_(2 << blockBits), endsInRadix2_(blockBits % 2 == 0) {
  const int points = blockLength_ / lanes;
  for (int n = 0; n < points; ++n) {
    for (int lane = 0; lane < lanes; ++lane) {
      const double angle = std::numbers::pi * n * (1 + 4 * lane) / (2.0 * blockLength_);
      laneCos_.push_back(std::cos(angle));
      laneSin_.push_back(-std::sin(angle));
    }
  }
  for (int length = points; length >= 4; length /= 4) {
    Stage stage{length * lanes, {}};
    for (int power = 1; power <= 3; ++power) {
      for (const bool imaginary : {false, true}) {
        for (int n = 0; n < length / 4; ++n) {
          const double angle = 2.0 * std::numbers::pi * power * n / length;
          stage.factors.insert(stage.factors.end(), lanes,
                               imaginary ? -std::sin(angle) : std::cos(angle));
        }
      }
    }
    stages_.push_back(std::move(stage));
  }
}

void CDSPRealFFT::forward(const double* first, const double* second,
                          double* spectrum) const noexcept VELLUMIC_NONBLOCKING {
  double* re = spectrum;
  double* im = spectrum + blockLength_;
  split(first, second, re, im);
  for (const Stage& stage : stages_) {
    for (int base = 0; base < blockLength_; base += stage.span) {
      const int q = stage.span / 4;
      double* r = re + base;
      double* i = im + base;
      forwardStage(r, r + q, r + 2 * q, r + 3 * q, i, i + q, i + 2 * q, i + 3 * q,
                   stage.factors.data(), q);
    }
  }
  if (endsInRadix2_) radix2Stage(spectrum, 2 * blockLength_);
}

void CDSPRealFFT::inverse(double* spectrum, double* second,
                          int stride) const noexcept VELLUMIC_NONBLOCKING {
  double* re = spectrum;
  double* im = spectrum + blockLength_;
  if (endsInRadix2_) radix2Stage(spectrum, 2 * blockLength_);
  for (auto stage = stages_.rbegin(); stage != stages_.rend(); ++stage) {
    for (int base = 0; base < blockLength_; base += stage->span) {
      const int q = stage->span / 4;
      double* r = re + base;
      double* i = im + base;
      inverseStage(r, r + q, r + 2 * q, r + 3 * q, i, i + q, i + 2 * q, i + 3 * q,
                   stage->factors.data(), q);
    }
  }
  join(re, im, second, stride);
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
                       double* __restrict second, int stride) const noexcept {
  const int quarter = blockLength_ / 4;
  const int apart = quarter * stride;
  const double* __restrict cosine = laneCos_.data();
  const double* __restrict sine = laneSin_.data();
  for (int n = 0; n < quarter; ++n, second += stride) {
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
    second[0] = sumI + oddSumI;
    second[apart] = bR * s1 + bI * c1;
    second[2 * apart] = (cR + cI) * c2;
    second[3 * apart] = dR * c1 + dI * s1;
  }
}

}  // namespace vellumic::resample
