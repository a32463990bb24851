// Transforms of 2, 3, 4, 5 and 8 complex points, forward, unscaled, in place and in order. For
// kernel sources alone. V: a register or a single number.
#pragma once

#include "spectra/kernels/Lanes.h"

namespace vellumic::VELLUMIC_KERNEL_SET {

template <class V>
struct Complex {
  V re, im;
  friend Complex operator+(const Complex& a, const Complex& b) noexcept {
    return {a.re + b.re, a.im + b.im};
  }
  friend Complex operator-(const Complex& a, const Complex& b) noexcept {
    return {a.re - b.re, a.im - b.im};
  }
  friend Complex operator*(const Complex& a, const Complex& b) noexcept {
    return {mulSub(a.im, b.im, a.re * b.re), mulAdd(a.im, b.re, a.re * b.im)};
  }
  friend Complex operator*(const Complex& a, const V& b) noexcept { return {a.re * b, a.im * b}; }
};

template <class V>
inline Complex<V> conjugate(const Complex<V>& x) noexcept {
  return {x.re, -x.im};
}
template <class V>
inline Complex<V> reversed(const Complex<V>& x) noexcept {
  return {reversed(x.re), reversed(x.im)};
}

// a - i b and a + i b.
template <class V>
inline Complex<V> minusI(const Complex<V>& a, const Complex<V>& b) noexcept {
  return {a.re + b.im, a.im - b.re};
}
template <class V>
inline Complex<V> plusI(const Complex<V>& a, const Complex<V>& b) noexcept {
  return {a.re - b.im, a.im + b.re};
}
// a + b factor
template <class V>
inline Complex<V> addScaled(const Complex<V>& a, const Complex<V>& b, const V& factor) noexcept {
  return {mulAdd(b.re, factor, a.re), mulAdd(b.im, factor, a.im)};
}

template <class V>
inline void transform2(Complex<V>& a, Complex<V>& b) noexcept {
  const Complex<V> sum = a + b;
  b = a - b;
  a = sum;
}

template <class V>
inline void transform3(Complex<V>& a, Complex<V>& b, Complex<V>& c) noexcept {
  const Complex<V> sum = b + c, turn = (b - c) * constant<V>(0.86602540378443864676);
  const Complex<V> middle = addScaled(a, sum, constant<V>(-0.5));
  a = a + sum;
  b = minusI(middle, turn);
  c = plusI(middle, turn);
}

template <class V>
inline void transform4(Complex<V>& a, Complex<V>& b, Complex<V>& c, Complex<V>& d) noexcept {
  const Complex<V> sum = a + c, difference = a - c, oddSum = b + d, oddDifference = b - d;
  a = sum + oddSum;
  b = minusI(difference, oddDifference);
  c = sum - oddSum;
  d = plusI(difference, oddDifference);
}

template <class V>
inline void transform5(Complex<V>* a) noexcept {
  const V cos1 = constant<V>(0.30901699437494742410), cos2 = constant<V>(-0.80901699437494742410);
  const V sin1 = constant<V>(0.95105651629515357212), sin2 = constant<V>(0.58778525229247312917);
  const Complex<V> outer = a[1] + a[4], inner = a[2] + a[3];
  const Complex<V> outerTurn = a[1] - a[4], innerTurn = a[2] - a[3];
  const Complex<V> middle1 = addScaled(addScaled(a[0], outer, cos1), inner, cos2);
  const Complex<V> middle2 = addScaled(addScaled(a[0], outer, cos2), inner, cos1);
  const Complex<V> turn1 = addScaled(outerTurn * sin1, innerTurn, sin2);
  const Complex<V> turn2 = outerTurn * sin2 - innerTurn * sin1;
  a[0] = a[0] + outer + inner;
  a[1] = minusI(middle1, turn1);
  a[4] = plusI(middle1, turn1);
  a[2] = minusI(middle2, turn2);
  a[3] = plusI(middle2, turn2);
}

template <class V>
inline void transform8(Complex<V>* a) noexcept {
  transform4(a[0], a[2], a[4], a[6]);
  transform4(a[1], a[3], a[5], a[7]);
  const V half = constant<V>(0.70710678118654752440);
  const Complex<V> turn1 = minusI(a[3], a[3]) * half, turn3 = plusI(a[7], a[7]) * half;
  const Complex<V> even1 = a[2], even2 = a[4], even3 = a[6], odd0 = a[1], odd2 = a[5];
  a[4] = a[0] - odd0;
  a[0] = a[0] + odd0;
  a[1] = even1 + turn1;
  a[5] = even1 - turn1;
  a[2] = minusI(even2, odd2);
  a[6] = plusI(even2, odd2);
  a[3] = even3 - turn3;
  a[7] = even3 + turn3;
}

template <int radix, class V>
inline void transformInPlace(Complex<V>* a) noexcept {
  if constexpr (radix == 2) transform2(a[0], a[1]);
  if constexpr (radix == 3) transform3(a[0], a[1], a[2]);
  if constexpr (radix == 4) transform4(a[0], a[1], a[2], a[3]);
  if constexpr (radix == 5) transform5(a);
  if constexpr (radix == 8) transform8(a);
}

}  // namespace vellumic::VELLUMIC_KERNEL_SET
