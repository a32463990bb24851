// A half spectrum as two planes, the real and the imaginary parts of all bins, as kernels take it.
#pragma once

namespace vellumic {

struct ConstPlanes {
  const float* real;
  const float* imag;
};

struct Planes {
  float* real;
  float* imag;
  operator ConstPlanes() const noexcept { return {real, imag}; }
};

}  // namespace vellumic
