#include "tools/quality/Distortion.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace vellumic::quality {
namespace {

constexpr int taps = 512, lookahead = 256;  // the filter reaches that far into the future

}  // namespace

struct FilterInvariantSdr::Factor {
  Eigen::LDLT<Eigen::MatrixXd> toeplitz;
};

FilterInvariantSdr::FilterInvariantSdr(std::vector<float> target) : target_(std::move(target)) {
  if (target_.size() < std::size_t{4} * taps || energy(target_) == 0.0) return;
  const std::vector<double> correlation = crossCorrelation(target_, target_, 0, taps - 1);
  Eigen::MatrixXd toeplitz(taps, taps);
  for (int i = 0; i < taps; ++i)
    for (int j = 0; j < taps; ++j)
      toeplitz(i, j) = correlation[static_cast<std::size_t>(std::abs(i - j))];
  toeplitz.diagonal().array() += 1e-9 * correlation[0];
  factor_ = std::make_unique<Factor>(Factor{toeplitz.ldlt()});
}

FilterInvariantSdr::~FilterInvariantSdr() = default;
FilterInvariantSdr::FilterInvariantSdr(FilterInvariantSdr&&) noexcept = default;
FilterInvariantSdr& FilterInvariantSdr::operator=(FilterInvariantSdr&&) noexcept = default;

double FilterInvariantSdr::operator()(View signal) const {
  if (!factor_) return 0.0;
  const std::vector<double> lags =
      crossCorrelation(target_, signal, -lookahead, taps - 1 - lookahead);
  const Eigen::Map<const Eigen::VectorXd> cross(lags.data(), taps);
  const Eigen::VectorXd filter = factor_->toeplitz.solve(cross);
  const double explained = filter.dot(cross);  // energy of the filtered target in the signal
  return decibels(explained / std::max(energy(signal) - explained, 1e-20));
}

double scaleInvariantSdr(View target, View signal) {
  const double power = energy(target);
  if (power == 0.0) return 0.0;
  const double scale = dot(target, signal) / power;
  double rest = 0.0;
  for (std::size_t n = 0; n < target.size(); ++n) {
    const double error = signal[n] - scale * target[n];
    rest += error * error;
  }
  return decibels(scale * scale * power / std::max(rest, 1e-20));
}

double segmentalSnr(View target, View signal) {
  constexpr std::size_t frame = 512;
  const double scale = dot(target, signal) / std::max(energy(signal), 1e-20);
  const double quiet = 1e-3 * energy(target) / static_cast<double>(target.size());
  double sum = 0.0;
  int frames = 0;
  for (std::size_t n = 0; n + frame <= target.size(); n += frame) {
    const double power = energy(target.subspan(n, frame));
    if (power < quiet * frame) continue;
    double error = 0.0;
    for (std::size_t i = n; i < n + frame; ++i) {
      const double e = scale * signal[i] - target[i];
      error += e * e;
    }
    sum += std::clamp(decibels(power / std::max(error, 1e-20)), -10.0, 35.0);
    ++frames;
  }
  return frames == 0 ? 0.0 : sum / frames;
}

}  // namespace vellumic::quality
