// Moves between the lanes of registers that xsimd has no name for. For kernel sources alone.
//
// V is Floats, Doubles or, at the ends of loops, a single number, which counts as one lane.
#pragma once

#include "platform/KernelBuild.h"

namespace vellumic::VELLUMIC_KERNEL_SET {

template <class V>
inline constexpr int lanesOf = static_cast<int>(V::size);
template <>
inline constexpr int lanesOf<float> = 1;
template <>
inline constexpr int lanesOf<double> = 1;

template <class V>
inline V constant(double value) noexcept {
  if constexpr (lanesOf<V> == 1)
    return static_cast<V>(value);
  else
    return V(static_cast<typename V::value_type>(value));
}
template <class V, class Real>
inline V load(const Real* from) noexcept {
  if constexpr (lanesOf<V> == 1)
    return *from;
  else
    return V::load_unaligned(from);
}
template <class Real>
inline void store(Real* to, Real value) noexcept {
  *to = value;
}
template <class Real>
inline void store(Real* to, const xsimd::batch<Real, Arch>& value) noexcept {
  value.store_unaligned(to);
}

// a b + c and c - a b, rounded once where the set can.
template <class V>
inline V mulAdd(const V& a, const V& b, const V& c) noexcept {
  if constexpr (lanesOf<V> == 1)
    return a * b + c;
  else
    return xsimd::fma(a, b, c);
}
template <class V>
inline V mulSub(const V& a, const V& b, const V& c) noexcept {
  if constexpr (lanesOf<V> == 1)
    return c - a * b;
  else
    return xsimd::fnma(a, b, c);
}

// Lanes in reverse order.
template <class V>
inline V reversed(const V& x) noexcept {
  using Real = typename V::value_type;
#if defined(VELLUMIC_KERNEL_AVX2)
  if constexpr (sizeof(Real) == 4)
    return V(_mm256_permutevar8x32_ps(x, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)));
  else
    return V(_mm256_permute4x64_pd(x, 0x1B));
#elif defined(__SSE4_2__)
  if constexpr (sizeof(Real) == 4)
    return V(_mm_shuffle_ps(x, x, 0x1B));
  else
    return V(_mm_shuffle_pd(x, x, 1));
#else
  Real values[lanesOf<V>], turned[lanesOf<V>];
  x.store_unaligned(values);
  for (int lane = 0; lane < lanesOf<V>; ++lane) turned[lane] = values[lanesOf<V> - 1 - lane];
  return V::load_unaligned(turned);
#endif
}

// (a0 b0 a1 b1 ...) from two neighbouring registers to (a0 a1 ...) and (b0 b1 ...).
inline void takeApart(const Floats& low, const Floats& high, Floats& a, Floats& b) noexcept {
#if defined(VELLUMIC_KERNEL_AVX2)
  const __m256 even = _mm256_permute2f128_ps(low, high, 0x20);
  const __m256 odd = _mm256_permute2f128_ps(low, high, 0x31);
  a = Floats(_mm256_shuffle_ps(even, odd, 0x88));
  b = Floats(_mm256_shuffle_ps(even, odd, 0xDD));
#elif defined(__SSE4_2__)
  a = Floats(_mm_shuffle_ps(low, high, 0x88));
  b = Floats(_mm_shuffle_ps(low, high, 0xDD));
#else
  float values[2 * floatLanes], first[floatLanes], second[floatLanes];
  low.store_unaligned(values);
  high.store_unaligned(values + floatLanes);
  for (int lane = 0; lane < floatLanes; ++lane) {
    first[lane] = values[2 * lane];
    second[lane] = values[2 * lane + 1];
  }
  a = Floats::load_unaligned(first);
  b = Floats::load_unaligned(second);
#endif
}

// Stores (a0 b0 a1 b1 ...).
inline void storePairs(float* to, float a, float b) noexcept {
  to[0] = a;
  to[1] = b;
}
inline void storePairs(float* to, const Floats& a, const Floats& b) noexcept {
#if defined(VELLUMIC_KERNEL_AVX2)  // xsimd's own interleaves each half of a register
  const __m256 low = _mm256_unpacklo_ps(a, b), high = _mm256_unpackhi_ps(a, b);
  _mm256_storeu_ps(to, _mm256_permute2f128_ps(low, high, 0x20));
  _mm256_storeu_ps(to + 8, _mm256_permute2f128_ps(low, high, 0x31));
#else
  xsimd::zip_lo(a, b).store_unaligned(to);
  xsimd::zip_hi(a, b).store_unaligned(to + floatLanes);
#endif
}

#if defined(VELLUMIC_KERNEL_AVX2)

inline void transpose(Floats* x) noexcept {
  __m256 pairs[8], fours[8];
  for (int n = 0; n < 8; n += 2) {
    pairs[n] = _mm256_unpacklo_ps(x[n], x[n + 1]);
    pairs[n + 1] = _mm256_unpackhi_ps(x[n], x[n + 1]);
  }
  for (int n = 0; n < 8; n += 4)
    for (int half = 0; half < 2; ++half) {
      fours[n + 2 * half] = _mm256_shuffle_ps(pairs[n + half], pairs[n + 2 + half], 0x44);
      fours[n + 2 * half + 1] = _mm256_shuffle_ps(pairs[n + half], pairs[n + 2 + half], 0xEE);
    }
  for (int n = 0; n < 4; ++n) {
    x[n] = Floats(_mm256_permute2f128_ps(fours[n], fours[n + 4], 0x20));
    x[n + 4] = Floats(_mm256_permute2f128_ps(fours[n], fours[n + 4], 0x31));
  }
}

inline void transpose(Doubles* x) noexcept {
  const __m256d low01 = _mm256_unpacklo_pd(x[0], x[1]), high01 = _mm256_unpackhi_pd(x[0], x[1]);
  const __m256d low23 = _mm256_unpacklo_pd(x[2], x[3]), high23 = _mm256_unpackhi_pd(x[2], x[3]);
  x[0] = Doubles(_mm256_permute2f128_pd(low01, low23, 0x20));
  x[1] = Doubles(_mm256_permute2f128_pd(high01, high23, 0x20));
  x[2] = Doubles(_mm256_permute2f128_pd(low01, low23, 0x31));
  x[3] = Doubles(_mm256_permute2f128_pd(high01, high23, 0x31));
}

#elif defined(__SSE4_2__)

inline void transpose(Floats* x) noexcept {
  const __m128 low01 = _mm_unpacklo_ps(x[0], x[1]), high01 = _mm_unpackhi_ps(x[0], x[1]);
  const __m128 low23 = _mm_unpacklo_ps(x[2], x[3]), high23 = _mm_unpackhi_ps(x[2], x[3]);
  x[0] = Floats(_mm_movelh_ps(low01, low23));
  x[1] = Floats(_mm_movehl_ps(low23, low01));
  x[2] = Floats(_mm_movelh_ps(high01, high23));
  x[3] = Floats(_mm_movehl_ps(high23, high01));
}

inline void transpose(Doubles* x) noexcept {
  const __m128d low = _mm_unpacklo_pd(x[0], x[1]), high = _mm_unpackhi_pd(x[0], x[1]);
  x[0] = Doubles(low);
  x[1] = Doubles(high);
}

#else

// As many registers as lanes: rows become columns.
template <class V>
inline void transpose(V* x) noexcept {
  constexpr int lanes = lanesOf<V>;
  typename V::value_type values[lanes * lanes], turned[lanes * lanes];
  for (int n = 0; n < lanes; ++n) x[n].store_unaligned(values + n * lanes);
  for (int n = 0; n < lanes * lanes; ++n) turned[n] = values[n % lanes * lanes + n / lanes];
  for (int n = 0; n < lanes; ++n) x[n] = V::load_unaligned(turned + n * lanes);
}

#endif

}  // namespace vellumic::VELLUMIC_KERNEL_SET
