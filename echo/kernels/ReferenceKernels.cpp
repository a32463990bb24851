#include "platform/KernelBuild.h"
// Its own build of everything comes first.
#include "echo/kernels/Lanes.h"
#include "echo/kernels/ReferenceKernels.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

void update(const ReferenceKernels::Update& a, int bins) noexcept VELLUMIC_NONBLOCKING {
  const float rate = 1.0F - a.pole;
  const Floats floor(1e-10F), factor(a.crossFactor), strength(a.crossFactor * a.crossFactor);
  overBins(bins, [&](auto lanes) {
    const ComplexFloats first = load(lanes, a.spectrum0), second = load(lanes, a.spectrum1);
    const Floats power0 = rate * norm(first) + a.pole * lanes.load(a.power0);
    const Floats power1 = rate * norm(second) + a.pole * lanes.load(a.power1);
    const ComplexFloats cross =
        Floats(a.pole) * load(lanes, a.cross) + (Floats(rate) * first) * conj(second);
    lanes.store(a.power0, power0);
    lanes.store(a.power1, power1);
    store(lanes, a.cross, cross);

    const ComplexFloats coherence = (1.0F / (xsimd::sqrt(power0 * power1) + floor)) * cross;
    const Floats scale = 1.0F - strength * norm(coherence);
    lanes.store(a.scaledPower0, power0 * scale);
    lanes.store(a.scaledPower1, power1 * scale);

    store(lanes, a.decorrelated0,
          conj(first) - ((factor / (power1 + floor)) * cross) * conj(second));
    store(lanes, a.decorrelated1,
          conj(second) - ((factor / (power0 + floor)) * cross) * conj(first));
  });
}

void magnitude(ConstPlanes spectrum, float* result, int bins) noexcept VELLUMIC_NONBLOCKING {
  overBins(bins,
           [&](auto lanes) { lanes.store(result, xsimd::sqrt(norm(load(lanes, spectrum)))); });
}

}  // namespace

extern const ReferenceKernels referenceKernels;
const ReferenceKernels referenceKernels{update, magnitude};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
