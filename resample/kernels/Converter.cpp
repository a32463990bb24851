#include "platform/KernelBuild.h"
#include "resample/kernels/ConverterKernels.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

using resample::SpectrumProduct;

constexpr int registers = 2;  // side by side, for independent chains of additions

void sumProducts(const SpectrumProduct* products, int count, double* sum,
                 int points) noexcept VELLUMIC_NONBLOCKING {
  for (int n = 0; n < points; n += registers * doubleLanes) {
    Doubles re[registers], im[registers];
    for (int side = 0; side < registers; ++side) re[side] = im[side] = Doubles(0.0);
    for (const SpectrumProduct* product = products; product != products + count; ++product) {
      for (int side = 0; side < registers; ++side) {
        const int at = n + side * doubleLanes;
        const auto xR = Doubles::load_unaligned(product->signal + at);
        const auto xI = Doubles::load_unaligned(product->signal + at + points);
        const auto hR = Doubles::load_unaligned(product->filter + at);
        const auto hI = Doubles::load_unaligned(product->filter + at + points);
        re[side] = xsimd::fnma(xI, hI, xsimd::fma(xR, hR, re[side]));
        im[side] = xsimd::fma(xI, hR, xsimd::fma(xR, hI, im[side]));
      }
    }
    for (int side = 0; side < registers; ++side) {
      re[side].store_unaligned(sum + n + side * doubleLanes);
      im[side].store_unaligned(sum + n + side * doubleLanes + points);
    }
  }
}

double interpolate(const double* row, double r, const double* samples,
                   int taps) noexcept VELLUMIC_NONBLOCKING {
  const Doubles position(r);
  Doubles sums[registers] = {Doubles(0.0), Doubles(0.0)};
  for (int i = 0; i < taps; i += registers * doubleLanes)
    for (int side = 0; side < registers; ++side) {
      const double* at = row + i + side * doubleLanes;
      const auto c0 = Doubles::load_unaligned(at);
      const auto c1 = Doubles::load_unaligned(at + taps);
      const auto c2 = Doubles::load_unaligned(at + 2 * taps);
      const Doubles tap = xsimd::fma(position, xsimd::fma(position, c2, c1), c0);
      const auto sample = Doubles::load_unaligned(samples + i + side * doubleLanes);
      sums[side] = xsimd::fma(tap, sample, sums[side]);
    }
  return xsimd::hadd(sums[0] + sums[1]);
}

}  // namespace

extern const resample::ConverterKernels converterTable;
const resample::ConverterKernels converterTable{sumProducts, interpolate};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
