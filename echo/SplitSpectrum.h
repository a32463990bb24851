// A half spectrum as separate planes of real and imaginary parts, for arithmetic side by side.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <span>

#include "echo/kernels/Planes.h"
#include "spectra/Fft.h"

namespace vellumic {

struct SplitSpectrum {
  Eigen::ArrayXf real, imag;

  // Allocates only when the size changes.
  void setZero(Eigen::Index bins) {
    real.setZero(bins);
    imag.setZero(bins);
  }
  Eigen::Index size() const noexcept { return real.size(); }
  Planes planes() noexcept { return {real.data(), imag.data()}; }
  ConstPlanes planes() const noexcept { return {real.data(), imag.data()}; }

  // Transform to and from fft.size() samples; size() is that of its bins.
  void fromSamples(Fft& fft, const float* samples) noexcept {
    fft.forward({samples, static_cast<std::size_t>(fft.size())}, span(real), span(imag));
  }
  void toSamples(Fft& fft, float* samples) noexcept {
    fft.inverse(span(real), span(imag), {samples, static_cast<std::size_t>(fft.size())});
  }

 private:
  static std::span<float> span(Eigen::ArrayXf& plane) noexcept {
    return {plane.data(), static_cast<std::size_t>(plane.size())};
  }
};

}  // namespace vellumic
