#include "spectra/Fft.h"

#include <unsupported/Eigen/FFT>
#include <vector>

namespace vellumic {

struct Fft::Plan {
  Plan() { transform.SetFlag(Eigen::FFT<float>::HalfSpectrum); }
  Eigen::FFT<float> transform;  // builds a table when it first meets a size and direction
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
  auto plan = std::make_unique<Plan>();
  const auto count = static_cast<std::size_t>(size);
  std::vector<float> samples(count);
  std::vector<std::complex<float>> bins(count / 2 + 1);
  plan->transform.fwd(bins.data(), samples.data(), size);
  plan->transform.inv(samples.data(), bins.data(), size);
  plan_ = std::move(plan);
  size_ = size;
}

void Fft::forward(const float* samples, std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING {
  plan_->transform.fwd(bins, samples, size_);
}

void Fft::inverse(const std::complex<float>* bins, float* samples) noexcept VELLUMIC_NONBLOCKING {
  plan_->transform.inv(samples, bins, size_);
}

}  // namespace vellumic
