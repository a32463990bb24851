// Every size, entry and instruction set of the transform against a transform in double.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>
#include <random>
#include <unsupported/Eigen/FFT>
#include <vector>

#include "platform/InstructionSet.h"
#include "spectra/Fft.h"
#include "spectra/TransformTables.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

using Bins = std::vector<std::complex<float>>;

// In parts of the root of the energy: roundings of 6e-8 in each of log2 size passes.
double mostError(int size) {
  const bool powerOfTwo = std::has_single_bit(static_cast<unsigned>(size));
  return (powerOfTwo ? 4.6e-8 : 5.5e-8) * std::sqrt(std::log2(size));
}

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

class FftSets : public testing::TestWithParam<InstructionSet> {};

TEST_P(FftSets, TransformsAnySizeThereAndBack) {
  const ScopedInstructionSet set(GetParam());
  Fft prepared;
  for (const int size :
       {2,    4,    6,    8,     10,    16,    30,    32,    48,    64,   80,   96,
        112,  128,  150,  160,   256,   240,   320,   480,   512,   640,  720,  768,
        960,  1000, 1024, 1200,  1280,  1536,  1920,  2048,  2250,  2560, 3072, 4096,
        6000, 8192, 9600, 12288, 16384, 30000, 32768, 40960, 262144}) {
    SCOPED_TRACE(size);
    const std::vector<float> given = noise(size);
    std::vector<double> exactSamples(given.begin(), given.end());
    std::vector<std::complex<double>> exactBins(given.size() / 2 + 1);
    Eigen::FFT<double> exact;
    exact.SetFlag(Eigen::FFT<double>::HalfSpectrum);
    exact.fwd(exactBins.data(), exactSamples.data(), size);
    Bins givenBins(exactBins.begin(), exactBins.end());
    // The ends of a half spectrum are real: what stands in their imaginary parts is not read.
    givenBins.front().imag(3.0F);
    givenBins.back().imag(-7.0F);
    std::vector<float> givenRe, givenIm;
    for (const auto& bin : givenBins) {
      givenRe.push_back(bin.real());
      givenIm.push_back(bin.imag());
    }

    // Through registers of 4 and of 8 wherever that is possible, with tables that all share.
    for (const int lanes : {4, 8}) {
      const bool fast = size % (2 * lanes) == 0 && size >= 4 * lanes && size != 112;
      EXPECT_EQ(RealTables::possible(size, lanes), fast) << lanes;
      const auto tables = fast ? RealTables::shared(size, lanes) : nullptr;
      EXPECT_EQ(tables, fast ? RealTables::shared(size, lanes) : nullptr);
    }
    prepared.prepare(size);
    Fft fft;
    fft = prepared;
    EXPECT_EQ(fft.size(), size);
    Bins bins(givenBins.size());
    std::vector<float> re(bins.size()), im = re, samples(given.size()), planesSamples = samples;
    EXPECT_EQ(fft.binCount(), std::ssize(bins));
    const RealtimeGuard guard;
    fft.prepare(size);  // as it is already
    fft.inverse(givenBins.data(), samples.data());
    fft.inverse(givenRe, givenIm, planesSamples);
    fft.forward(given.data(), bins.data());
    fft.forward(given, re, im);
    EXPECT_EQ(guard.violations(), 0);

    EXPECT_LT(distance(bins, exactBins), mostError(size));
    EXPECT_LT(distance(samples, exactSamples), mostError(size));
    ASSERT_EQ(samples, planesSamples);
    for (std::size_t k = 0; k < bins.size(); ++k)
      ASSERT_EQ(bins[k], std::complex<float>(re[k], im[k])) << k;
    EXPECT_EQ(bins.front().imag(), 0.0F);
    EXPECT_EQ(bins.back().imag(), 0.0F);
  }
}

INSTANTIATE_TEST_SUITE_P(EverySet, FftSets,
                         testing::Values(InstructionSet::Base, InstructionSet::Avx2),
                         [](const auto& set) { return nameOf(set.param); });

}  // namespace
}  // namespace vellumic
