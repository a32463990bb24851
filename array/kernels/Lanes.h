// Included by kernel sources after platform/KernelBuild.h: walks arrays of any length in full
// registers and one last, partly filled one.
#pragma once

#include <complex>

#include "platform/KernelBuild.h"

#if defined(__GNUC__) && !defined(__clang__)
// The library's complex load starts from registers that it then fills half by half.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace vellumic::VELLUMIC_KERNEL_SET {

using ComplexFloats = xsimd::batch<std::complex<float>, Arch>;  // a register of each part

inline Floats powerOf(const ComplexFloats& x) { return x.real() * x.real() + x.imag() * x.imag(); }

struct FullLanes {
  static Floats load(const float* from) { return Floats::load_unaligned(from); }
  static void store(float* to, Floats values) { values.store_unaligned(to); }
  // Memory holds real and imaginary part in turn.
  static ComplexFloats loadComplex(const float* from) {
    return ComplexFloats::load_unaligned(reinterpret_cast<const std::complex<float>*>(from));
  }
  static void storeComplex(float* to, ComplexFloats values) {
    values.store_unaligned(reinterpret_cast<std::complex<float>*>(to));
  }
};

// The first `count` lanes are the array's; the others read 0 and are not stored.
struct FirstLanes {
  int count;

  Floats load(const float* from) const {
    float lanes[floatLanes] = {};
    copy(from, lanes, count);
    return FullLanes::load(lanes);
  }
  void store(float* to, Floats values) const {
    float lanes[floatLanes];
    FullLanes::store(lanes, values);
    copy(lanes, to, count);
  }
  ComplexFloats loadComplex(const float* from) const {
    float lanes[2 * floatLanes] = {};
    copy(from, lanes, 2 * count);
    return FullLanes::loadComplex(lanes);
  }
  void storeComplex(float* to, ComplexFloats values) const {
    float lanes[2 * floatLanes];
    FullLanes::storeComplex(lanes, values);
    copy(lanes, to, 2 * count);
  }

 private:
  static void copy(const float* from, float* to, int floats) {
    for (int i = 0; i < floats; ++i) to[i] = from[i];
  }
};

// Calls work(lanes, k) for k = 0, floatLanes, ... below count; what stands at k goes through
// lanes.load and lanes.store.
template <class Work>
inline void forLanes(int count, Work work) {
  int k = 0;
  for (; k + floatLanes <= count; k += floatLanes) work(FullLanes{}, k);
  if (k < count) work(FirstLanes{count - k}, k);
}

}  // namespace vellumic::VELLUMIC_KERNEL_SET
