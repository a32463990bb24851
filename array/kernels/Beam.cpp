#include "platform/KernelBuild.h"
// KernelBuild.h first: it names the set.
#include "array/kernels/Beam.h"
#include "array/kernels/Lanes.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

Floats at(const float* plane, int k) { return FullLanes::load(plane + k); }

void zeroAbove(float* spectrum, int bins, float largest) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    const ComplexFloats x = lanes.loadComplex(spectrum + 2 * k);
    const auto sound = powerOf(x) <= Floats(largest);  // false for NaN
    const Floats zero(0.0F);
    lanes.storeComplex(spectrum + 2 * k,
                       {select(sound, x.real(), zero), select(sound, x.imag(), zero)});
  });
}

void split(const float* spectrum, int bins, float* real, float* imaginary,
           float* power) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    const ComplexFloats x = lanes.loadComplex(spectrum + 2 * k);
    lanes.store(real + k, x.real());
    lanes.store(imaginary + k, x.imag());
    lanes.store(power + k, powerOf(x));
  });
}

void approach(float* mean, int k, Floats value, Floats rate) {
  const Floats old = at(mean, k);
  FullLanes::store(mean + k, old + rate * (value - old));
}

// Two planes, the real and the imaginary one, `rows` apart.
template <bool withNoise>
void smoothPair(const float* xi, const float* yi, const float* xj, const float* yj, int rows,
                Floats rate, float* signal, float* noise) {
  for (int k = 0; k < rows; k += floatLanes) {
    const Floats real = at(xi, k) * at(xj, k) + at(yi, k) * at(yj, k);
    const Floats imaginary = at(xi, k) * at(yj, k) - at(yi, k) * at(xj, k);
    approach(signal, k, real, rate);
    approach(signal + rows, k, imaginary, rate);
    if constexpr (withNoise) {
      approach(noise, k, real, rate);
      approach(noise + rows, k, imaginary, rate);
    }
  }
}

template <bool withNoise>
void smoothAll(const float* real, const float* imaginary, const float* power, int rows,
               int microphones, Floats rate, float* signal, float* noise) {
  const auto next = [&](int planes) {
    signal += planes * rows;
    if constexpr (withNoise) noise += planes * rows;
  };
  for (int i = 0; i < microphones; ++i) {
    for (int k = 0; k < rows; k += floatLanes) {
      approach(signal, k, at(power + i * rows, k), rate);
      if constexpr (withNoise) approach(noise, k, at(power + i * rows, k), rate);
    }
    next(1);
    for (int j = i + 1; j < microphones; ++j, next(2))
      smoothPair<withNoise>(real + i * rows, imaginary + i * rows, real + j * rows,
                            imaginary + j * rows, rows, rate, signal, noise);
  }
}

void smooth(const float* real, const float* imaginary, const float* power, int rows,
            int microphones, float rate, float* signal,
            float* noise) noexcept VELLUMIC_NONBLOCKING {
  if (noise)
    smoothAll<true>(real, imaginary, power, rows, microphones, Floats(rate), signal, noise);
  else
    smoothAll<false>(real, imaginary, power, rows, microphones, Floats(rate), signal, noise);
}

void combine(const float* real, const float* imaginary, const float* weightReal,
             const float* weightImaginary, int rows, int microphones, int bins,
             float* output) noexcept VELLUMIC_NONBLOCKING {
  forLanes(bins, [=](auto lanes, int k) {
    Floats sumReal(0.0F), sumImaginary(0.0F);
    for (int m = 0, at0 = k; m < microphones; ++m, at0 += rows) {
      const Floats x = at(real, at0), y = at(imaginary, at0);
      const Floats u = at(weightReal, at0), v = at(weightImaginary, at0);
      sumReal += x * u - y * v;
      sumImaginary += x * v + y * u;
    }
    lanes.storeComplex(output + 2 * k, {sumReal, sumImaginary});
  });
}

}  // namespace

const BeamKernels beam{zeroAbove, split, smooth, combine};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
