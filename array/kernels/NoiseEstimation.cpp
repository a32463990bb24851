#include "platform/KernelBuild.h"
// KernelBuild.h first: it names the set.
#include "array/kernels/Lanes.h"
#include "array/kernels/NoiseEstimation.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

// Functions: a constant would be made when the library is loaded, on any machine.
Floats zero() { return Floats(0.0F); }
Floats one() { return Floats(1.0F); }

// What is not a number becomes the floor.
Floats floored(Floats value) { return max(value, Floats(noiseEpsilon)); }

void smoothBins(const float* in, int bins, float* out) noexcept VELLUMIC_NONBLOCKING {
  const Floats quarter(0.25F), half(0.5F);
  forLanes(bins - 2, [=](auto lanes, int k) {
    lanes.store(out + k + 1, quarter * lanes.load(in + k) + half * lanes.load(in + k + 1) +
                                 quarter * lanes.load(in + k + 2));
  });
  const int last = bins - 1;
  out[0] = 0.5F * in[0] + 0.25F * in[1];
  out[last] = 0.5F * in[last] + 0.5F * in[last - 1];
}

void followPower(const NoiseFrame& frame, const NoiseEstimatorSettings& settings,
                 const float* smoothedPower, float* mask,
                 float* maskedPower) noexcept VELLUMIC_NONBLOCKING {
  const Floats pole(settings.powerPole), rest(1.0F - settings.powerPole);
  const Floats bias(settings.minimumBias), gamma0(settings.gamma0), zeta0(settings.zeta0);
  const NoiseFrame f = frame;
  forLanes(f.bins, [=](auto lanes, int k) {
    const Floats P = lanes.load(f.power + k);
    const Floats S = pole * lanes.load(f.S + k) + rest * lanes.load(smoothedPower + k);
    const Floats minimum = min(lanes.load(f.minimumS + k), S);
    lanes.store(f.S + k, S);
    lanes.store(f.minimumS + k, minimum);
    const Floats floor = bias * floored(minimum);
    const auto noiseOnly = (P / floor < gamma0) && (S / floor < zeta0);
    const Floats marked = select(noiseOnly, one(), zero());
    lanes.store(mask + k, marked);
    lanes.store(maskedPower + k, P * marked);
  });
}

// Probability of speech, from the ratios of power and of smoothed power to the noise minimum.
struct Presence {
  explicit Presence(const NoiseEstimatorSettings& s)
      : gamma1(s.gamma1),
        zeta0(s.zeta0),
        snrPole(s.snrPole),
        snrRest(1.0F - s.snrPole),
        snrFloor(s.snrFloor) {}

  Floats operator()(Floats power, Floats ratio, Floats smoothedRatio, Floats noise,
                    Floats previousClean) const {
    const Floats absence = (gamma1 - ratio) / (gamma1 - one());  // a priori
    const Floats priorPresence = floored(one() - absence);
    const Floats posterior = power / noise;
    const Floats decisionDirected =
        snrPole * previousClean / noise + snrRest * max(posterior - one(), zero());
    const Floats prior = max(decisionDirected / priorPresence, snrFloor);
    const Floats v = posterior * prior / floored(prior + one());
    const Floats odds = absence / priorPresence * (one() + prior) * exp(-v);
    // A ratio beyond float gives no odds; the noise then stands still.
    const Floats likely = min(one() / floored(one() + odds), one());
    const Floats unlessAbsent = select(ratio <= one(), zero(), likely);
    return select((ratio >= gamma1) || (smoothedRatio >= zeta0), one(), unlessAbsent);
  }

  Floats gamma1, zeta0, snrPole, snrRest, snrFloor;
};

void followNoise(const NoiseFrame& frame, const NoiseEstimatorSettings& settings,
                 const float* smoothedMask, const float* smoothedMaskedPower,
                 float biasCompensation) noexcept VELLUMIC_NONBLOCKING {
  const Floats pole(settings.powerPole), rest(1.0F - settings.powerPole);
  const Floats noisePole(settings.noisePole), noiseRest(1.0F - settings.noisePole);
  const Floats bias(settings.minimumBias), beta(biasCompensation);
  const Presence presence(settings);
  const NoiseFrame f = frame;
  forLanes(f.bins, [=](auto lanes, int k) {
    const Floats weight = lanes.load(smoothedMask + k), before = lanes.load(f.S2 + k);
    const Floats mean =
        select(weight != zero(), lanes.load(smoothedMaskedPower + k) / floored(weight), before);
    const Floats S2 = pole * before + rest * mean;
    const Floats minimum = min(lanes.load(f.minimumS2 + k), S2);
    lanes.store(f.S2 + k, S2);
    lanes.store(f.minimumS2 + k, minimum);

    const Floats P = lanes.load(f.power + k), S = lanes.load(f.S + k);
    const Floats p =
        presence(P, P / bias / floored(minimum), S / bias / floored(minimum),
                 floored(lanes.load(f.noiseBiased + k)), lanes.load(f.previousClean + k));
    const Floats alpha = noisePole + noiseRest * p;
    const Floats noise = (one() - alpha) * P + alpha * lanes.load(f.noiseUnbiased + k);
    lanes.store(f.noiseUnbiased + k, noise);
    lanes.store(f.noiseBiased + k, beta * noise);
  });
}

void lesser(const float* a, const float* b, int bins, float* out) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    lanes.store(out + k, min(lanes.load(b + k), lanes.load(a + k)));
  });
}

}  // namespace

const NoiseKernels noise{smoothBins, followPower, followNoise, lesser};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
