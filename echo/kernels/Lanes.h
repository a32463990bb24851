// For kernel sources: bins side by side in a register, and the loop that walks over all bins with
// an incomplete register at the end.
#pragma once

#include "echo/kernels/Planes.h"
#include "platform/KernelBuild.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {  // of one kernel source each

// A full register of bins.
struct FullLanes {
  int first;
  Floats load(const float* bins) const { return Floats::load_unaligned(bins + first); }
  void store(float* bins, Floats value) const { value.store_unaligned(bins + first); }
  Floats keep(Floats value) const { return value; }
};

// The last bins; lanes beyond them read as 0.
struct LastLanes {
  int first, count;
  Floats load(const float* bins) const {
    float lanes[floatLanes] = {};
    for (int i = 0; i < count; ++i) lanes[i] = bins[first + i];
    return Floats::load_unaligned(lanes);
  }
  void store(float* bins, Floats value) const {
    float lanes[floatLanes];
    value.store_unaligned(lanes);
    for (int i = 0; i < count; ++i) bins[first + i] = lanes[i];
  }
  // 0 in the lanes that stand for no bin, so that sums do not see them.
  Floats keep(Floats value) const {
    float lanes[floatLanes];
    value.store_unaligned(lanes);
    for (int i = count; i < floatLanes; ++i) lanes[i] = 0.0F;
    return Floats::load_unaligned(lanes);
  }
};

template <class Body>
inline void overBins(int bins, Body body) {
  int k = 0;
  for (; k + floatLanes <= bins; k += floatLanes) body(FullLanes{k});
  if (k < bins) body(LastLanes{k, bins - k});
}

struct ComplexFloats {
  Floats re, im;
};

template <class Lanes>
inline ComplexFloats load(Lanes lanes, ConstPlanes planes) {
  return {lanes.load(planes.real), lanes.load(planes.imag)};
}

template <class Lanes>
inline void store(Lanes lanes, Planes planes, ComplexFloats value) {
  lanes.store(planes.real, value.re);
  lanes.store(planes.imag, value.im);
}

inline ComplexFloats operator+(ComplexFloats a, ComplexFloats b) {
  return {a.re + b.re, a.im + b.im};
}
inline ComplexFloats operator-(ComplexFloats a, ComplexFloats b) {
  return {a.re - b.re, a.im - b.im};
}
inline ComplexFloats operator*(Floats a, ComplexFloats b) { return {a * b.re, a * b.im}; }
inline ComplexFloats operator*(ComplexFloats a, ComplexFloats b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
inline ComplexFloats conj(ComplexFloats a) { return {a.re, -a.im}; }
inline Floats norm(ComplexFloats a) { return a.re * a.re + a.im * a.im; }

}  // namespace
}  // namespace vellumic::VELLUMIC_KERNEL_SET
