#include "spectra/Fft.h"

#include <cassert>
#include <unsupported/Eigen/FFT>
#include <vector>

namespace vellumic {

struct Fft::Plan {
  explicit Plan(std::size_t size) : bins(size / 2 + 1) {
    transform.SetFlag(Eigen::FFT<float>::HalfSpectrum);
  }
  Eigen::FFT<float> transform;  // builds a table when it first meets a size and direction
  std::vector<std::complex<float>> bins;
};

Fft::Fft() = default;
Fft::Fft(int size) { prepare(size); }
Fft::Fft(const Fft& other) {
  if (other.size_ > 0) prepare(other.size_);
}
Fft::Fft(Fft&& other) noexcept = default;
Fft& Fft::operator=(const Fft& other) {
  if (this != &other) *this = Fft(other);
  return *this;
}
Fft& Fft::operator=(Fft&& other) noexcept = default;
Fft::~Fft() = default;

void Fft::prepare(int size) {
  if (size == size_ && plan_) return;
  const auto count = static_cast<std::size_t>(size);
  auto plan = std::make_unique<Plan>(count);
  std::vector<float> samples(count);
  plan->transform.fwd(plan->bins.data(), samples.data(), size);
  plan->transform.inv(samples.data(), plan->bins.data(), size);
  plan_ = std::move(plan);
  size_ = size;
}

void Fft::forward(const float* samples, std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING {
  plan_->transform.fwd(bins, samples, size_);
}

void Fft::inverse(const std::complex<float>* bins, float* samples) noexcept VELLUMIC_NONBLOCKING {
  plan_->transform.inv(samples, bins, size_);
}

void Fft::forward(std::span<const float> samples, std::span<float> re,
                  std::span<float> im) noexcept VELLUMIC_NONBLOCKING {
  assert(std::ssize(samples) >= size_ && std::ssize(re) >= binCount() &&
         std::ssize(im) >= binCount());
  forward(samples.data(), plan_->bins.data());
  for (std::size_t k = 0; k < plan_->bins.size(); ++k) {
    re[k] = plan_->bins[k].real();
    im[k] = plan_->bins[k].imag();
  }
}

void Fft::inverse(std::span<const float> re, std::span<const float> im,
                  std::span<float> samples) noexcept VELLUMIC_NONBLOCKING {
  assert(std::ssize(samples) >= size_ && std::ssize(re) >= binCount() &&
         std::ssize(im) >= binCount());
  for (std::size_t k = 0; k < plan_->bins.size(); ++k) plan_->bins[k] = {re[k], im[k]};
  inverse(plan_->bins.data(), samples.data());
}

}  // namespace vellumic
