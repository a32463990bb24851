#include "platform/KernelBuild.h"
// KernelBuild.h first: it names the set.
#include "array/kernels/Gain.h"
#include "array/kernels/Lanes.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

void power(const float* spectrum, int bins, float* to) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    lanes.store(to + k, powerOf(lanes.loadComplex(spectrum + 2 * k)));
  });
}

void magnitude(const float* spectrum, int bins, float* to) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    lanes.store(to + k, sqrt(powerOf(lanes.loadComplex(spectrum + 2 * k))));
  });
}

// A ratio of positive numbers is the rule; odd settings can make a negative one.
Floats raise(Floats ratio, float exponent) {
  if (exponent == 0.0F) return Floats(1.0F);
  if (any(ratio < Floats(0.0F))) return pow(ratio, Floats(exponent));
  return exp(Floats(exponent) * log(ratio));
}

// max(floor, (snr / (snr + offset))^exponent); what is not a number stays so.
Floats wienerPass(Floats snr, float offset, float exponent, float floor) {
  const Floats ratio = snr / max(Floats(gainEpsilon), snr + Floats(offset));
  return max(Floats(floor), raise(ratio, exponent));
}

void passes(const float* powers, const float* noise, const float* cleanPower, int bins,
            const SpectralGainSettings& settings, float snrFloor,
            float* to) noexcept VELLUMIC_NONBLOCKING {
  const SpectralGainSettings& s = settings;
  forLanes(bins, [=, &s](auto lanes, int k) {
    const Floats P = lanes.load(powers + k);
    const Floats n = max(Floats(gainEpsilon), lanes.load(noise + k));
    const Floats instantaneous = max(Floats(snrFloor), P / n - Floats(1.0F));
    Floats prior = Floats(1.0F - s.snrPole) * instantaneous;
    if (cleanPower) prior += Floats(s.snrPole) * (lanes.load(cleanPower + k) / n);
    const Floats first = wienerPass(prior, s.offset1, s.exponent1, s.floor1);
    const Floats second = P * (first * first) / n;
    lanes.store(to + k, wienerPass(second, s.offset2, s.exponent2, s.floor2));
  });
}

void finish(const float* powers, int bins, float factor, float* gains,
            float* cleanPower) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    const Floats G = lanes.load(gains + k) * Floats(factor);
    const Floats clean = lanes.load(powers + k) * (G * G);
    lanes.store(gains + k, G);
    lanes.store(cleanPower + k, select(isfinite(clean), clean, Floats(0.0F)));
  });
}

void apply(const float* gains, const float* input, int bins,
           float* output) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    const Floats G = lanes.load(gains + k);
    const ComplexFloats x = lanes.loadComplex(input + 2 * k);
    lanes.storeComplex(output + 2 * k, {G * x.real(), G * x.imag()});
  });
}

}  // namespace

const GainKernels gain{power, magnitude, passes, finish, apply};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
