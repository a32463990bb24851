// Real discrete Fourier transform of one size: the only place that knows which transform runs.
//
// forward: n real samples to n / 2 + 1 bins, unscaled. inverse: those bins to n samples, times
// 1 / n; the imaginary parts of the first and the last bin are taken as 0.
//
// Sizes: even. Multiples of 16 from 32 on with no prime factor above 5 run in vector registers
// (kernels/TransformKernels.h), within 1.6e-7 of the exact result, root mean square; others go
// through Eigen, several times slower. Equal sizes share their tables.
// Threads: construction, copying and prepare allocate and belong off the audio path; forward and
// inverse allocate nothing. An object holds scratch memory, 8 bytes a sample, so one thread uses it
// at a time. The instruction set is that in force at prepare.
#pragma once

#include <complex>
#include <memory>
#include <span>

#include "platform/Realtime.h"

namespace vellumic {

class Fft {
 public:
  Fft();  // unusable until prepare
  explicit Fft(int size);
  Fft(const Fft& other);
  Fft(Fft&& other) noexcept;
  Fft& operator=(const Fft& other);
  Fft& operator=(Fft&& other) noexcept;
  ~Fft();

  // Builds the tables for both directions; nothing happens if the size is the present one.
  void prepare(int size);
  int size() const noexcept { return size_; }
  int binCount() const noexcept { return size_ / 2 + 1; }

  // samples: size() floats. bins: binCount() values. The two may not overlap.
  void forward(const float* samples, std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING;
  void inverse(const std::complex<float>* bins, float* samples) noexcept VELLUMIC_NONBLOCKING;

  // The same with real and imaginary parts apart, binCount() each: cheaper, and what vector code
  // wants. samples: size() floats. No two may overlap.
  void forward(std::span<const float> samples, std::span<float> re,
               std::span<float> im) noexcept VELLUMIC_NONBLOCKING;
  void inverse(std::span<const float> re, std::span<const float> im,
               std::span<float> samples) noexcept VELLUMIC_NONBLOCKING;

 private:
  struct Plan;
  struct FastPlan;
  struct PlainPlan;
  std::unique_ptr<Plan> plan_;
  int size_ = 0;
};

}  // namespace vellumic
