// The complex transform of TransformKernels.h. For kernel sources alone.
//
// A source hands over input points n to n + L of the first pass, a sink takes output points n to
// n + L of the last one: whatever has to happen to the data at either end happens there, in
// registers.
#pragma once

#include "spectra/kernels/Butterflies.h"
#include "spectra/kernels/TransformKernels.h"

namespace vellumic::VELLUMIC_KERNEL_SET {

// Points as planes of real and imaginary parts.
template <class Real>
struct PlanesSource {
  const Real *re, *im;
  template <class V>
  Complex<V> get(int point) const noexcept {
    return {load<V>(re + point), load<V>(im + point)};
  }
};
template <class Real>
struct PlanesSink {
  Real *re, *im;
  template <class V>
  void put(int point, const Complex<V>& value) const noexcept {
    store(re + point, value.re);
    store(im + point, value.im);
  }
};
// Between passes: a register of real parts, then one of imaginary parts.
template <class Real>
struct RegisterSource {
  const Real* values;
  template <class V>
  Complex<V> get(int point) const noexcept {
    const Real* at = values + 2 * point;
    return {load<V>(at), load<V>(at + lanesOf<V>)};
  }
};
template <class Real>
struct RegisterSink {
  Real* values;
  template <class V>
  void put(int point, const Complex<V>& value) const noexcept {
    store(values + 2 * point, value.re);
    store(values + 2 * point + lanesOf<V>, value.im);
  }
};

// Columns n to n + lanesOf<V> of step 1.
template <class V, class Real, class Source>
inline void laneColumns(const ComplexPlan<Real>& plan, const Source& source, int n,
                        Real* target) noexcept {
  constexpr int lanes = lanesOf<xsimd::batch<Real, Arch>>;
  const int length = plan.points / lanes;
  Complex<V> points[lanes];
  for (int k = 0; k < lanes; ++k) points[k] = source.template get<V>(n + k * length);
  transformInPlace<lanes>(points);
  const Real* w = plan.laneTwiddles + n * 2 * (lanes - 1);
  V re[lanes], im[lanes];
  re[0] = points[0].re;
  im[0] = points[0].im;
  for (int k = 1; k < lanes; ++k, w += 2 * lanesOf<V>) {
    const Complex<V> turned = points[k] * Complex<V>{load<V>(w), load<V>(w + lanesOf<V>)};
    re[k] = turned.re;
    im[k] = turned.im;
  }
  target += n * 2 * lanes;
  if constexpr (lanesOf<V> == 1) {
    for (int k = 0; k < lanes; ++k) {
      target[k] = re[k];
      target[lanes + k] = im[k];
    }
  } else {
    transpose(re);
    transpose(im);
    for (int k = 0; k < lanes; ++k, target += 2 * lanes) {
      store(target, re[k]);
      store(target + lanes, im[k]);
    }
  }
}

template <class Real, class Source>
inline void laneStep(const ComplexPlan<Real>& plan, const Source& source, Real* target) noexcept {
  using V = xsimd::batch<Real, Arch>;
  const int length = plan.points / lanesOf<V>;
  int n = 0;
  for (; n + lanesOf<V> <= length; n += lanesOf<V>) laneColumns<V>(plan, source, n, target);
  for (; n < length; ++n) laneColumns<Real>(plan, source, n, target);
}

template <int radix, bool turned, class Real, class Sink>
inline void pass(const TransformPass<Real>& stage, const Real* from, const Sink& sink) noexcept {
  using V = xsimd::batch<Real, Arch>;
  constexpr int lanes = lanesOf<V>;
  const int rows = stage.rows, columns = stage.columns;
  const Real* w = stage.twiddles;
  for (int row = 0; row < rows; ++row, w += 2 * (radix - 1)) {
    Complex<V> factors[radix];
    if constexpr (turned)
      for (int k = 1; k < radix; ++k) factors[k] = {V(w[2 * k - 2]), V(w[2 * k - 1])};
    const RegisterSource<Real> source{from + 2 * lanes * columns * row};
    for (int column = 0; column < columns; ++column) {
      Complex<V> points[radix];
      for (int k = 0; k < radix; ++k)
        points[k] = source.template get<V>(lanes * (column + k * columns * rows));
      transformInPlace<radix>(points);
      const int to = lanes * (column + radix * columns * row);
      sink.put(to, points[0]);
      for (int k = 1; k < radix; ++k) {
        if constexpr (turned) points[k] = points[k] * factors[k];
        sink.put(to + lanes * columns * k, points[k]);
      }
    }
  }
}

template <bool turned, class Real, class Sink>
inline void anyPass(const TransformPass<Real>& stage, const Real* from, const Sink& sink) noexcept {
  switch (stage.radix) {
    case 2:
      return pass<2, turned>(stage, from, sink);
    case 3:
      return pass<3, turned>(stage, from, sink);
    case 4:
      return pass<4, turned>(stage, from, sink);
    case 5:
      return pass<5, turned>(stage, from, sink);
    default:
      return pass<8, turned>(stage, from, sink);
  }
}

// The scratch buffer that the last pass reads; the other one is free for the sink.
template <class Real>
inline Real* lastBuffer(const ComplexPlan<Real>& plan, TransformScratch<Real> scratch) noexcept {
  return plan.passCount % 2 == 1 ? scratch.first : scratch.second;
}

// The source may stand in scratch.second.
template <class Real, class Source, class Sink>
inline void transform(const ComplexPlan<Real>& plan, TransformScratch<Real> scratch,
                      const Source& source, const Sink& sink) noexcept {
  Real *from = scratch.first, *to = scratch.second;
  laneStep(plan, source, from);
  for (int n = 0; n + 1 < plan.passCount; ++n) {
    anyPass<true>(plan.passes[n], from, RegisterSink<Real>{to});
    Real* const free = from;
    from = to;
    to = free;
  }
  anyPass<false>(plan.passes[plan.passCount - 1], from, sink);
}

}  // namespace vellumic::VELLUMIC_KERNEL_SET
