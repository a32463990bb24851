// Every size, entry and instruction set of the transform against a transform in double.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <unsupported/Eigen/FFT>
#include <vector>

#include "platform/InstructionSet.h"
#include "spectra/Fft.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

using Bins = std::vector<std::complex<float>>;

std::vector<float> noise(int count) {
  std::mt19937 random(static_cast<unsigned>(count));
  std::normal_distribution<float> level(0.0F, 1.0F);
  std::vector<float> samples(static_cast<std::size_t>(count));
  for (float& sample : samples) sample = level(random);
  return samples;
}

// Euclidean distance in parts of the length of `exact`.
template <class A, class B>
double distance(const std::vector<A>& values, const std::vector<B>& exact) {
  double difference = 0.0, length = 0.0;
  for (std::size_t n = 0; n < exact.size(); ++n) {
    difference += std::norm(B(values[n]) - exact[n]);
    length += std::norm(exact[n]);
  }
  return std::sqrt(difference / length);
}

// One size in double, and what the plain library transform in float errs by on the same numbers.
struct Expected {
  explicit Expected(int size)
      : samples(noise(size)), exactBins(samples.size() / 2 + 1), exactSamples(samples.size()) {
    Eigen::FFT<double> exact;
    exact.SetFlag(Eigen::FFT<double>::HalfSpectrum);
    const std::vector<double> wide(samples.begin(), samples.end());
    exact.fwd(exactBins.data(), wide.data(), size);
    bins.assign(exactBins.begin(), exactBins.end());
    const std::vector<std::complex<double>> wideBins(bins.begin(), bins.end());
    exact.inv(exactSamples.data(), wideBins.data(), size);

    Eigen::FFT<float> plain;
    plain.SetFlag(Eigen::FFT<float>::HalfSpectrum);
    Bins plainBins(bins.size());
    std::vector<float> plainSamples(samples.size());
    plain.fwd(plainBins.data(), samples.data(), size);
    plain.inv(plainSamples.data(), bins.data(), size);
    forwardError = distance(plainBins, exactBins);
    inverseError = distance(plainSamples, exactSamples);
  }
  std::vector<float> samples;
  std::vector<std::complex<double>> exactBins;
  Bins bins;                         // exactBins rounded: what the inverse is given
  std::vector<double> exactSamples;  // of those
  double forwardError, inverseError;
};

class FftSets : public testing::TestWithParam<InstructionSet> {};

TEST_P(FftSets, ErrsNoMoreThanThePlainTransformAtAnySize) {
  const ScopedInstructionSet set(GetParam());
  for (const int size : {2,    4,    6,    8,    10,   16,    30,    32,    48,    64,    80,
                         96,   128,  150,  160,  256,  240,   320,   480,   512,   640,   720,
                         768,  960,  1000, 1024, 1200, 1280,  1536,  1920,  2048,  2250,  2560,
                         3072, 4096, 6000, 8192, 9600, 12288, 16384, 30000, 32768, 40960, 262144}) {
    SCOPED_TRACE(size);
    const Expected expected(size);
    Fft fft(size);
    Bins bins(expected.bins.size());
    std::vector<float> re(bins.size()), im = re, samples(expected.samples.size());
    std::vector<float> planesSamples = samples;

    const RealtimeGuard guard;
    fft.inverse(expected.bins.data(), samples.data());
    fft.forward(expected.samples.data(), bins.data());
    fft.forward(expected.samples, re, im);
    EXPECT_EQ(guard.violations(), 0);

    // Chance decides between transforms of a few roundings.
    const double margin = size < 64 ? 5e-8 : size < 512 ? 3e-9 : 0.0;
    EXPECT_LE(distance(bins, expected.exactBins), expected.forwardError + margin);
    EXPECT_LE(distance(samples, expected.exactSamples), expected.inverseError + margin);

    std::vector<float> binsRe, binsIm;
    for (const auto& bin : expected.bins) {
      binsRe.push_back(bin.real());
      binsIm.push_back(bin.imag());
    }
    fft.inverse(binsRe, binsIm, planesSamples);
    ASSERT_EQ(samples, planesSamples);
    for (std::size_t k = 0; k < bins.size(); ++k)
      ASSERT_EQ(bins[k], std::complex<float>(re[k], im[k])) << k;
    EXPECT_EQ(bins.front().imag(), 0.0F);
    EXPECT_EQ(bins.back().imag(), 0.0F);
  }
}

// The ends of a half spectrum are real: whatever stands in their imaginary parts is not read.
TEST_P(FftSets, TakesTheImaginaryPartsOfBothEndBinsAsZero) {
  const ScopedInstructionSet set(GetParam());
  for (const int size : {30, 64, 480, 2048}) {
    Fft fft(size);
    const std::vector<float> samples = noise(size);
    Bins bins(samples.size() / 2 + 1);
    std::vector<float> clean(samples.size()), back = clean;
    fft.forward(samples.data(), bins.data());
    fft.inverse(bins.data(), clean.data());
    bins.front().imag(3.0F);
    bins.back().imag(-7.0F);
    fft.inverse(bins.data(), back.data());
    EXPECT_LT(distance(back, std::vector<double>(clean.begin(), clean.end())), 3e-7) << size;
  }
}

INSTANTIATE_TEST_SUITE_P(EverySet, FftSets,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2),
                         [](const auto& set) { return nameOf(set.param); });

// An object goes on as it was prepared when it is copied or the set changes under it.
TEST(Fft, CopiesTransformLikeTheirOriginal) {
  const std::vector<float> samples = noise(512);
  Bins first(257), second(257);
  Fft original(512);
  original.forward(samples.data(), first.data());
  const ScopedInstructionSet set(InstructionSet::Base);
  Fft copy(original);
  copy.forward(samples.data(), second.data());
  EXPECT_LT(distance(second, std::vector<std::complex<double>>(first.begin(), first.end())), 1e-6);
  original.forward(samples.data(), second.data());
  EXPECT_EQ(first, second);
}

}  // namespace
}  // namespace vellumic
