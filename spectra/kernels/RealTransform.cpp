#include "platform/KernelBuild.h"
#include "spectra/kernels/ComplexTransform.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

// With Z the transform of even samples + i odd samples, M = n / 2 points, w = exp(-2 pi i k / n):
//   even(k) = (Z(k) + conj Z(M - k)) / 2,  odd(k) = (Z(k) - conj Z(M - k)) / 2i,
//   X(k) = even + w odd,  conj X(M - k) = even - w odd.

struct SamplesSource {
  const float* samples;
  template <class V>
  Complex<V> get(int point) const noexcept {
    const float* at = samples + 2 * point;
    if constexpr (lanesOf<V> == 1) {
      return {at[0], at[1]};
    } else {
      Complex<V> value;
      takeApart(load<V>(at), load<V>(at + lanesOf<V>), value.re, value.im);
      return value;
    }
  }
};
// Of an inverse: the parts come in each other's place.
struct SamplesSink {
  float* samples;
  void put(int point, const Complex<Floats>& value) const noexcept {
    storePairs(samples + 2 * point, value.im, value.re);
  }
};

struct PairsSource {
  const float* pairs;
  template <class V>
  Complex<V> get(int point) const noexcept {
    return SamplesSource{pairs}.get<V>(point);
  }
};
struct PairsSink {
  float* pairs;
  template <class V>
  void put(int point, const Complex<V>& value) const noexcept {
    storePairs(pairs + 2 * point, value.re, value.im);
  }
};

// Calls step(k, mirrored) for registers of bins k to k + L that cover 1 to M / 2, the last ones
// twice where they do not fit; `mirrored` is the first of the bins M - k - L + 1 to M - k.
template <class Step>
inline void forBothHalves(int points, const Step& step) noexcept {
  const int last = points / 2 - floatLanes + 1;
  int k = 1;
  for (; k < last; k += floatLanes) step(k, points - k - floatLanes + 1);
  step(last, points - last - floatLanes + 1);
}

inline Complex<Floats> twiddle(const RealPlan& plan, int k) noexcept {
  const int count = plan.half.points / 2 + 1;
  return {load<Floats>(plan.twiddles + k), load<Floats>(plan.twiddles + count + k)};
}

template <class Sink>
inline void forwardTo(const RealPlan& plan, TransformScratch<float> scratch, const float* samples,
                      const Sink& sink) noexcept {
  const int points = plan.half.points;
  // The last pass may not write what it reads; a distance of M + 16 keeps the planes apart in the
  // cache.
  float* const free =
      lastBuffer(plan.half, scratch) == scratch.first ? scratch.second : scratch.first;
  const PlanesSink<float> planes{free, free + points + 16};
  transform(plan.half, scratch, SamplesSource{samples}, planes);
  const PlanesSource<float> z{planes.re, planes.im};
  const Floats half(0.5F);
  forBothHalves(points, [&](int k, int mirrored) {
    const Complex<Floats> a = z.get<Floats>(k) * half;
    const Complex<Floats> b = conjugate(reversed(z.get<Floats>(mirrored))) * half;
    const Complex<Floats> even = a + b, turned = (a - b) * twiddle(plan, k);
    sink.put(k, minusI(even, turned));
    sink.put(mirrored, conjugate(reversed(plusI(even, turned))));
  });
  sink.put(0, Complex<float>{planes.re[0] + planes.im[0], 0.0F});
  sink.put(points, Complex<float>{planes.re[0] - planes.im[0], 0.0F});
}

template <class Source>
inline void inverseFrom(const RealPlan& plan, TransformScratch<float> scratch, const Source& bins,
                        float* samples) noexcept {
  const int points = plan.half.points;
  const PlanesSink<float> z{scratch.second, scratch.second + points + 16};
  const float scale = 0.5F / static_cast<float>(points);
  const float first = bins.template get<float>(0).re, last = bins.template get<float>(points).re;
  z.put(0, Complex<float>{(first + last) * scale, (first - last) * scale});
  const Floats factor(scale);
  forBothHalves(points, [&](int k, int mirrored) {
    const Complex<Floats> a = bins.template get<Floats>(k) * factor;
    const Complex<Floats> b = conjugate(reversed(bins.template get<Floats>(mirrored))) * factor;
    const Complex<Floats> even = a + b, odd = (a - b) * conjugate(twiddle(plan, k));
    z.put(k, plusI(even, odd));
    z.put(mirrored, conjugate(reversed(minusI(even, odd))));
  });
  transform(plan.half, scratch, PlanesSource<float>{z.im, z.re}, SamplesSink{samples});
}

void forward(const RealPlan& plan, TransformScratch<float> scratch, const float* samples, float* re,
             float* im) noexcept VELLUMIC_NONBLOCKING {
  forwardTo(plan, scratch, samples, PlanesSink<float>{re, im});
}
void forwardPairs(const RealPlan& plan, TransformScratch<float> scratch, const float* samples,
                  float* bins) noexcept VELLUMIC_NONBLOCKING {
  forwardTo(plan, scratch, samples, PairsSink{bins});
}
void inverse(const RealPlan& plan, TransformScratch<float> scratch, const float* re,
             const float* im, float* samples) noexcept VELLUMIC_NONBLOCKING {
  inverseFrom(plan, scratch, PlanesSource<float>{re, im}, samples);
}
void inversePairs(const RealPlan& plan, TransformScratch<float> scratch, const float* bins,
                  float* samples) noexcept VELLUMIC_NONBLOCKING {
  inverseFrom(plan, scratch, PairsSource{bins}, samples);
}

}  // namespace

extern const RealTransformKernels realTransformTable;
const RealTransformKernels realTransformTable{floatLanes, forward, forwardPairs, inverse,
                                              inversePairs};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
