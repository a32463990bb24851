#include "platform/KernelBuild.h"
// Its own build of everything comes first.
#include "echo/kernels/KalmanKernels.h"
#include "echo/kernels/Lanes.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

using xsimd::select;

void predictEcho(const KalmanKernels::Echo& a, int bins) noexcept VELLUMIC_NONBLOCKING {
  overBins(bins, [&](auto lanes) {
    store(lanes, a.echo,
          load(lanes, a.reference0) * load(lanes, a.weights0) +
              load(lanes, a.reference1) * load(lanes, a.weights1));
  });
}

float measureError(const KalmanKernels::Error& a, int bins) noexcept VELLUMIC_NONBLOCKING {
  Floats sum(0.0F);
  overBins(bins, [&](auto lanes) {
    const ComplexFloats microphone = load(lanes, a.microphone);
    const ComplexFloats echo = load(lanes, a.echo);
    store(lanes, a.error, microphone - echo);
    Floats noise = lanes.load(a.noise);
    if (!a.holdNoise) {
      // The order of the arguments of max decides about NaN: it passes the second on.
      const Floats residual = xsimd::max(Floats(1e-5F), norm(microphone) - norm(echo));
      const Floats followed = (1.0F - a.pole) * residual + a.pole * noise;
      const Floats decayed = xsimd::max(a.pole * noise, Floats(0.1F));
      noise = select(lanes.load(a.updatePower) < Floats(a.threshold), followed, decayed);
      lanes.store(a.noise, noise);
    }
    sum += lanes.keep(noise);
  });
  return xsimd::hadd(sum);
}

void adapt(const KalmanKernels::Adaptation& a, int bins) noexcept VELLUMIC_NONBLOCKING {
  overBins(bins, [&](auto lanes) {
    const Floats power = lanes.load(a.scaledPower);
    const Floats prior = lanes.load(a.posterior) + lanes.load(a.processNoise);
    // The factor 3 is headroom for what the two references and the truncated path add to the error.
    const Floats denominator = 3.0F * prior * power + lanes.load(a.noisePower);
    // One division serves the gain and its limit 2 / |G|.
    const Floats bound = xsimd::max(Floats(1e-5F), xsimd::abs(power));
    const auto limited = xsimd::abs(prior) * bound >= 2.0F * xsimd::abs(denominator);
    const Floats gain = select(limited, Floats(2.0F), prior) / select(limited, bound, denominator);
    store(lanes, a.update, (gain * load(lanes, a.decorrelated)) * load(lanes, a.error));
    lanes.store(a.posterior, (1.0F - gain * power) * prior);
  });
}

void takeStep(const KalmanKernels::Step& a, int bins) noexcept VELLUMIC_NONBLOCKING {
  overBins(bins, [&](auto lanes) {
    const ComplexFloats update = load(lanes, a.update);
    store(lanes, a.weights, load(lanes, a.weights) + update);
    lanes.store(a.processNoise,
                (1.0F - a.pole) * norm(update) + a.pole * lanes.load(a.processNoise));
  });
}

KalmanKernels::Health judge(const KalmanKernels::Filters& a,
                            int bins) noexcept VELLUMIC_NONBLOCKING {
  const Floats one(1.0F), zero(0.0F);
  Floats covariance(0.0F), settled(0.0F), moving(0.0F);
  overBins(bins, [&](auto lanes) {
    const Floats updatePower = lanes.load(a.processNoise0) + lanes.load(a.processNoise1);
    lanes.store(a.updatePower, updatePower);
    settled += lanes.keep(select(updatePower < Floats(a.threshold), one, zero));
    moving += lanes.keep(select(xsimd::abs(updatePower) <= Floats(a.silence), zero, one));
    const Floats first = lanes.load(a.posterior0), second = lanes.load(a.posterior1);
    covariance += first * first + second * second;
  });
  return {xsimd::hadd(covariance), static_cast<int>(xsimd::hadd(settled)),
          xsimd::hadd(moving) > 0.0F};
}

KalmanKernels::Energies subtract(const float* microphone, const float* echo, float* error,
                                 int samples) noexcept VELLUMIC_NONBLOCKING {
  Floats heard(0.0F), left(0.0F);
  overBins(samples, [&](auto lanes) {
    const Floats sample = lanes.load(microphone);
    const Floats difference = sample - lanes.load(echo);
    lanes.store(error, difference);
    heard += sample * sample;
    left += difference * difference;
  });
  return {xsimd::hadd(heard), xsimd::hadd(left)};
}

}  // namespace

extern const KalmanKernels kalmanKernels;
const KalmanKernels kalmanKernels{predictEcho, measureError, adapt, takeStep, judge, subtract};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
