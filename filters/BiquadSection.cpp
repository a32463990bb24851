#include "filters/BiquadSection.h"

#include <cmath>

namespace vellumic {
namespace {

constexpr double pi = 3.141592653589793;
constexpr double twoPi = 6.283185307179586;
constexpr double butterworthHalfInverseQ = 0.707106781186547;  // 0.5 / Q with Q = 1/sqrt(2)

BiquadCoefficients rounded(double a1, double a2, double b0, double b1, double b2) noexcept {
  return {static_cast<float>(a1), static_cast<float>(a2), static_cast<float>(b0),
          static_cast<float>(b1), static_cast<float>(b2)};
}

BiquadCoefficients peak(double w0, double q, double g) noexcept {
  if (g == 1.0) return {};
  // The bandwidth is taken straight from w0, without a tangent.
  const double bw = g < 1.0 ? w0 / (2.0 * g * q) : (0.5 / q) * w0;
  const double beta = -0.5 * (1.0 - bw) / (1.0 + bw);
  const double gamma = (0.5 - beta) * std::cos(w0);
  const double alpha = (0.25 + 0.5 * beta) * (g - 1.0) + 0.5;
  return rounded(-2.0 * gamma, -2.0 * beta, 2.0 * alpha, -2.0 * gamma, 2.0 * (0.5 - alpha - beta));
}

// al = sin(w0) / (2 Q)
BiquadCoefficients lowPass(double w0, double al) noexcept {
  const double c = std::cos(w0), d = 1.0 / (1.0 + al);
  const double b = (1.0 - c) * 0.5 * d;
  return rounded(-2.0 * c * d, (1.0 - al) * d, b, (1.0 - c) * d, b);
}

BiquadCoefficients highPass(double w0, double al) noexcept {
  const double c = std::cos(w0), d = 1.0 / (1.0 + al);
  const double b = (1.0 + c) * 0.5 * d;
  return rounded(-2.0 * c * d, (1.0 - al) * d, b, (-1.0 - c) * d, b);
}

BiquadCoefficients bandPass(double w0, double al) noexcept {
  const double c = std::cos(w0), d = 1.0 / (1.0 + al);
  return rounded(-2.0 * c * d, (1.0 - al) * d, d * al, 0.0, -d * al);
}

BiquadCoefficients notch(double w0, double q) noexcept {
  const double t = std::tan((0.5 / q) * w0), d = 1.0 / (1.0 + t);
  const double middle = -2.0 * d * std::cos(w0);
  return rounded(middle, 2.0 * d - 1.0, d, middle, d);
}

// K = tan(pi f / fs), r = 1/Q. A NaN gain has no design.
std::optional<BiquadCoefficients> lowShelf(double K, double r, float gain) noexcept {
  const double K2 = K * K;
  if (gain == 1.0F) return BiquadCoefficients{};
  if (gain > 1.0F) {
    const double g = gain, s = std::sqrt(g) * r * K, d = 1.0 / (1.0 + r * K + K2);
    return rounded(2.0 * (K2 - 1.0) * d, (1.0 - r * K + K2) * d, (1.0 + s + g * K2) * d,
                   2.0 * (g * K2 - 1.0) * d, (1.0 - s + g * K2) * d);
  }
  if (gain < 1.0F) {
    const double h = 1.0F / gain, s = std::sqrt(h) * r * K, d = 1.0 / (1.0 + s + h * K2);
    return rounded(2.0 * (h * K2 - 1.0) * d, (1.0 - s + h * K2) * d, (1.0 + r * K + K2) * d,
                   2.0 * (K2 - 1.0) * d, (1.0 - r * K + K2) * d);
  }
  return std::nullopt;
}

std::optional<BiquadCoefficients> highShelf(double K, double r, float gain) noexcept {
  const double K2 = K * K;
  if (gain == 1.0F) return BiquadCoefficients{};
  if (gain > 1.0F) {
    const double g = gain, s = std::sqrt(g) * r * K, d = 1.0 / (1.0 + r * K + K2);
    return rounded(2.0 * (K2 - 1.0) * d, (1.0 - r * K + K2) * d, (g + s + K2) * d,
                   2.0 * (K2 - g) * d, (g - s + K2) * d);
  }
  if (gain < 1.0F) {
    // The numerator and the denominator are normalised apart in this one case.
    const double h = 1.0F / gain, s = std::sqrt(h) * r * K, t = (r / std::sqrt(h)) * K, m = K2 / h;
    const double d1 = 1.0 / (h + s + K2), d2 = 1.0 / (1.0 + t + m);
    return rounded(2.0 * (m - 1.0) * d2, (1.0 - t + m) * d2, (1.0 + r * K + K2) * d1,
                   2.0 * (K2 - 1.0) * d1, (1.0 - r * K + K2) * d1);
  }
  return std::nullopt;
}

bool isShelf(int type) noexcept {
  return type == static_cast<int>(BiquadType::LowShelf) ||
         type == static_cast<int>(BiquadType::HighShelf);
}

}  // namespace

std::optional<BiquadCoefficients> designBiquad(int type, float frequency, float q, float gain,
                                               float sampleRate) noexcept {
  const double f = frequency, fs = sampleRate, Q = q;
  const double w0 = twoPi * f / fs;
  switch (static_cast<BiquadType>(type)) {
    case BiquadType::Gain:
      return BiquadCoefficients{.b0 = gain};
    case BiquadType::Peak:
      return peak(w0, Q, gain);
    case BiquadType::LowPass:
      return lowPass(w0, std::sin(w0) * butterworthHalfInverseQ);
    case BiquadType::HighPass:
      return highPass(w0, std::sin(w0) * butterworthHalfInverseQ);
    case BiquadType::LowShelf:
      return lowShelf(std::tan(pi * f / fs), 1.0 / Q, gain);
    case BiquadType::HighShelf:
      return highShelf(std::tan(pi * f / fs), 1.0 / Q, gain);
    case BiquadType::Notch:
      return notch(w0, Q);
    case BiquadType::BandPass:
      return bandPass(w0, std::sin(w0) * (0.5 / Q));
    case BiquadType::HighPassQ:
      return highPass(w0, std::sin(w0) * (0.5 / Q));
  }
  return std::nullopt;
}

void BiquadSection::set(int newType, float newFrequency, float newGain, float newQ,
                        float newSampleRate) noexcept {
  type = newType;
  frequency = newFrequency;
  gain = newGain;
  q = newQ;
  sampleRate = newSampleRate;
  coefficientsChanged = 1;
  design();
}

void BiquadSection::design() noexcept {
  const auto designed = designBiquad(type, frequency, q, gain, sampleRate);
  if (!designed) return;
  a1 = designed->a1;
  a2 = designed->a2;
  b0 = designed->b0;
  b1 = designed->b1;
  b2 = designed->b2;
  if (isShelf(type) && gain < 1.0F) gain = 1.0F / gain;
}

}  // namespace vellumic
