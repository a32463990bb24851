// Real transforms in double straight from their definition, for the models that tests compare with.
#pragma once

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace vellumic {

using Reals = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;  // half: length / 2 + 1 bins

class PlainTransform {
 public:
  explicit PlainTransform(std::size_t length) : turns_(length) {
    for (std::size_t i = 0; i < length; ++i)
      turns_[i] = std::polar(
          1.0, -2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(length));
  }

  Spectrum forward(const Reals& samples) const {
    Spectrum bins(turns_.size() / 2 + 1);
    for (std::size_t k = 0; k < bins.size(); ++k)
      for (std::size_t i = 0; i < turns_.size(); ++i)
        bins[k] += samples[i] * turns_[i * k % turns_.size()];
    return bins;
  }

  // Scaled by 1 / length; imaginary parts of the first and the last bin count for nothing.
  Reals inverse(const Spectrum& bins) const {
    Reals samples(turns_.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
      for (std::size_t k = 0; k < bins.size(); ++k) {
        const bool edge = k == 0 || k + 1 == bins.size();
        samples[i] +=
            (edge ? 1.0 : 2.0) * (bins[k] * std::conj(turns_[i * k % turns_.size()])).real();
      }
      samples[i] /= static_cast<double>(samples.size());
    }
    return samples;
  }

 private:
  Spectrum turns_;
};

}  // namespace vellumic
