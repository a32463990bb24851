// The Kaiser window and the length it needs.
// J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh window function", 1974.
#pragma once

#include <cmath>
#include <numbers>

namespace vellumic::resample {

class KaiserWindow {
 public:
  // attenuation: of the stop band in dB, above 50.
  explicit KaiserWindow(double attenuation)
      : beta_(0.1102 * (attenuation - 8.7)), scale_(1.0 / besselI0(beta_)) {}

  // x: -1 to 1 from end to end, 0 the middle, where the window is 1. Zero outside.
  double operator()(double x) const {
    const double under = 1.0 - x * x;
    return under < 0.0 ? 0.0 : besselI0(beta_ * std::sqrt(under)) * scale_;
  }

  // Half the length in samples, for a slope of the given width in parts of the Nyquist frequency.
  static double halfLength(double attenuation, double slope) {
    constexpr double widthFactor = 2.285 * std::numbers::pi;
    return 0.5 * (attenuation - 7.95) / (widthFactor * slope);
  }

 private:
  static double besselI0(double x) {
    double term = 1.0;
    double sum = 1.0;
    for (double k = 1.0; term > 1e-17 * sum; k += 1.0) {
      term *= (0.5 * x / k) * (0.5 * x / k);
      sum += term;
    }
    return sum;
  }

  double beta_;
  double scale_;
};

// sin(pi x) / (pi x)
inline double sinc(double x) {
  const double angle = std::numbers::pi * x;
  return std::abs(angle) < 1e-9 ? 1.0 : std::sin(angle) / angle;
}

}  // namespace vellumic::resample
