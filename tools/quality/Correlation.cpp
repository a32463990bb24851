#include "tools/quality/Correlation.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <unsupported/Eigen/FFT>

namespace vellumic::quality {

double energy(View signal) { return dot(signal, signal); }

double dot(View a, View b) {
  double sum = 0.0;
  for (std::size_t n = 0; n < a.size(); ++n) sum += static_cast<double>(a[n]) * b[n];
  return sum;
}

double decibels(double ratio) { return 10.0 * std::log10(std::max(ratio, 1e-20)); }

std::vector<double> crossCorrelation(View a, View b, int first, int last) {
  const auto lags = static_cast<std::size_t>(last - first + 1);
  std::size_t size = 1024;
  while (size < 4 * lags) size *= 2;
  const std::size_t step = size - lags;

  Eigen::FFT<double> fft;
  fft.SetFlag(Eigen::FFT<double>::HalfSpectrum);
  std::vector<double> block(size);
  std::vector<std::complex<double>> left, right, sum(size / 2 + 1);
  for (std::size_t start = 0; start < a.size(); start += step) {
    const std::size_t count = std::min(step, a.size() - start);
    std::fill(block.begin(), block.end(), 0.0);
    std::copy_n(a.begin() + static_cast<std::ptrdiff_t>(start), count, block.begin());
    fft.fwd(left, block);
    for (std::size_t n = 0; n < size; ++n) {
      const std::size_t at = start + n + static_cast<std::size_t>(first);  // wraps below zero
      block[n] = at < b.size() ? static_cast<double>(b[at]) : 0.0;
    }
    fft.fwd(right, block);
    for (std::size_t k = 0; k < sum.size(); ++k) sum[k] += std::conj(left[k]) * right[k];
  }
  fft.inv(block, sum);
  block.resize(lags);
  return block;
}

}  // namespace vellumic::quality
