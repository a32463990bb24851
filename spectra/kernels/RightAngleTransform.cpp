#include "platform/KernelBuild.h"
#include "spectra/kernels/ComplexTransform.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

// (first - i second) times the weight.
struct WeightingSource {
  const double *first, *second;
  PlanesSource<double> weights;
  template <class V>
  Complex<V> get(int point) const noexcept {
    const V x = load<V>(first + point), y = load<V>(second + point);
    const Complex<V> w = weights.get<V>(point);
    return {mulAdd(y, w.im, x * w.re), mulSub(y, w.re, x * w.im)};
  }
};
// The imaginary part of what comes in, parts exchanged, times the conjugate weight.
struct SecondHalfSink {
  double* second;
  PlanesSource<double> weights;
  void put(int point, const Complex<Doubles>& value) const noexcept {
    const Complex<Doubles> w = weights.get<Doubles>(point);
    store(second + point, mulSub(value.im, w.im, value.re * w.re));
  }
};

void forward(const RightAnglePlan& plan, TransformScratch<double> scratch, const double* first,
             const double* second, double* spectrum) noexcept VELLUMIC_NONBLOCKING {
  const int points = plan.complex.points;
  transform(plan.complex, scratch,
            WeightingSource{first, second, {plan.weights, plan.weights + points}},
            PlanesSink<double>{spectrum, spectrum + points});
}

void inverse(const RightAnglePlan& plan, TransformScratch<double> scratch, const double* spectrum,
             double* second) noexcept VELLUMIC_NONBLOCKING {
  const int points = plan.complex.points;
  transform(plan.complex, scratch, PlanesSource<double>{spectrum + points, spectrum},
            SecondHalfSink{second, {plan.weights, plan.weights + points}});
}

}  // namespace

extern const RightAngleKernels rightAngleTable;
const RightAngleKernels rightAngleTable{doubleLanes, forward, inverse};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
