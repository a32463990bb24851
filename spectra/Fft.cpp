#include "spectra/Fft.h"

#include <cassert>
#include <unsupported/Eigen/FFT>
#include <vector>

#include "spectra/TransformTables.h"

namespace vellumic {

struct Fft::Plan {
  virtual ~Plan() = default;
  virtual void forward(const float* samples, float* re,
                       float* im) noexcept VELLUMIC_NONBLOCKING = 0;
  virtual void forward(const float* samples,
                       std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING = 0;
  virtual void inverse(const float* re, const float* im,
                       float* samples) noexcept VELLUMIC_NONBLOCKING = 0;
  virtual void inverse(const std::complex<float>* bins,
                       float* samples) noexcept VELLUMIC_NONBLOCKING = 0;
};

namespace {

// std::complex is laid out as a pair of numbers.
const float* pairs(const std::complex<float>* bins) { return reinterpret_cast<const float*>(bins); }
float* pairs(std::complex<float>* bins) { return reinterpret_cast<float*>(bins); }

}  // namespace

struct Fft::FastPlan final : Plan {
  FastPlan(int size, const RealTransformKernels& kernelsInForce)
      : kernels(kernelsInForce),
        tables(RealTables::shared(size, kernels.lanes)),
        scratch(size / 2) {}

  void forward(const float* samples, float* re, float* im) noexcept VELLUMIC_NONBLOCKING override {
    kernels.forward(tables->plan(), scratch.view(), samples, re, im);
  }
  void forward(const float* samples,
               std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING override {
    kernels.forwardPairs(tables->plan(), scratch.view(), samples, pairs(bins));
  }
  void inverse(const float* re, const float* im,
               float* samples) noexcept VELLUMIC_NONBLOCKING override {
    kernels.inverse(tables->plan(), scratch.view(), re, im, samples);
  }
  void inverse(const std::complex<float>* bins,
               float* samples) noexcept VELLUMIC_NONBLOCKING override {
    kernels.inversePairs(tables->plan(), scratch.view(), pairs(bins), samples);
  }

  const RealTransformKernels& kernels;  // of the set in force when the plan was made
  std::shared_ptr<const RealTables> tables;
  ScratchMemory<float> scratch;
};

// Any size. After its construction the library finds its tables made and allocates nothing.
struct Fft::PlainPlan final : Plan {
  explicit PlainPlan(int size) : size_(size), bins_(static_cast<std::size_t>(size / 2 + 1)) {
    transform_.SetFlag(Eigen::FFT<float>::HalfSpectrum);
    // It builds a table when it first meets a size and direction.
    std::vector<float> samples(static_cast<std::size_t>(size));
    transform_.fwd(bins_.data(), samples.data(), size_);
    transform_.inv(samples.data(), bins_.data(), size_);
  }

  void forward(const float* samples, float* re, float* im) noexcept VELLUMIC_NONBLOCKING override {
    forward(samples, bins_.data());
    for (std::size_t k = 0; k < bins_.size(); ++k) {
      re[k] = bins_[k].real();
      im[k] = bins_[k].imag();
    }
  }
  void forward(const float* samples,
               std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING override {
    vouchedFor([&] { transform_.fwd(bins, samples, size_); });
  }
  void inverse(const float* re, const float* im,
               float* samples) noexcept VELLUMIC_NONBLOCKING override {
    for (std::size_t k = 0; k < bins_.size(); ++k) bins_[k] = {re[k], im[k]};
    inverse(bins_.data(), samples);
  }
  void inverse(const std::complex<float>* bins,
               float* samples) noexcept VELLUMIC_NONBLOCKING override {
    vouchedFor([&] { transform_.inv(samples, bins, size_); });
  }

 private:
  int size_;
  Eigen::FFT<float> transform_;
  std::vector<std::complex<float>> bins_;
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
  const RealTransformKernels& kernels = realTransformKernels();
  if (RealTables::possible(size, kernels.lanes))
    plan_ = std::make_unique<FastPlan>(size, kernels);
  else
    plan_ = std::make_unique<PlainPlan>(size);
  size_ = size;
}

void Fft::forward(const float* samples, std::complex<float>* bins) noexcept VELLUMIC_NONBLOCKING {
  plan_->forward(samples, bins);
}

void Fft::inverse(const std::complex<float>* bins, float* samples) noexcept VELLUMIC_NONBLOCKING {
  plan_->inverse(bins, samples);
}

void Fft::forward(std::span<const float> samples, std::span<float> re,
                  std::span<float> im) noexcept VELLUMIC_NONBLOCKING {
  assert(std::ssize(samples) >= size_);
  assert(std::ssize(re) >= binCount() && std::ssize(im) >= binCount());
  plan_->forward(samples.data(), re.data(), im.data());
}

void Fft::inverse(std::span<const float> re, std::span<const float> im,
                  std::span<float> samples) noexcept VELLUMIC_NONBLOCKING {
  assert(std::ssize(samples) >= size_);
  assert(std::ssize(re) >= binCount() && std::ssize(im) >= binCount());
  plan_->inverse(re.data(), im.data(), samples.data());
}

}  // namespace vellumic
