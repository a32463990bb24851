#include "platform/KernelBuild.h"
// Its own build of everything comes first.
#include "echo/kernels/Lanes.h"
#include "echo/kernels/SuppressorKernels.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

using xsimd::select;

void suppress(const SuppressorKernels::Frame& a, int bins) noexcept VELLUMIC_NONBLOCKING {
  const Floats one(1.0F), zero(0.0F), floor(a.floor), greatest(a.greatestCoupling);
  overBins(bins, [&](auto lanes) {
    const Floats reference =
        a.pole * lanes.load(a.referenceMagnitude) + (1.0F - a.pole) * lanes.load(a.reference);
    lanes.store(a.referenceMagnitude, reference);

    const ComplexFloats error = load(lanes, a.error);
    const Floats power = norm(error);
    const Floats coupling = lanes.load(a.couplingGain);
    const Floats leak = coupling * reference;
    const Floats wanted = one - leak * leak * a.strength / xsimd::max(Floats(1e-10F), power);
    // Written so that NaN falls to the lower bounds.
    const Floats gain = xsimd::min(select(wanted > floor, wanted, floor), one);
    lanes.store(a.gain, gain);
    store(lanes, a.error, gain * error);

    const Floats moved = coupling + a.step * (xsimd::sqrt(power) - leak * coupling);
    lanes.store(a.couplingGain, select(moved > zero, xsimd::min(moved, greatest), zero));
  });
}

}  // namespace

extern const SuppressorKernels suppressorKernels;
const SuppressorKernels suppressorKernels{suppress};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
