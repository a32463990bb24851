#include <gtest/gtest.h>

#include "array/NoisePostfilter.h"
#include "tests/array/Signals.h"

namespace vellumic {
namespace {

constexpr int bins = 257;

// The minimum is that of a scan of all columns, for windows of any length and after a restart.
TEST(NoiseHistory, EqualsTheScanOfTheWholeWindow) {
  for (const int window : {1, 2, 7, 200}) {
    NoiseHistory history(3, window);
    Eigen::ArrayXXf columns = Eigen::ArrayXXf::Ones(3, window);
    for (int frame = 0; frame < 3 * window + 2; ++frame) {
      if (frame == window + 1) {
        history.restart();
        columns = 1.0F;
      }
      const Eigen::ArrayXf s = whiteNoise(3, 2.0F, static_cast<unsigned>(frame)).abs();
      columns.col(history.column) = s;
      history.push(s, 2.0F * s);
      EXPECT_TRUE((history.historyS.minimum() == columns.rowwise().minCoeff()).all());
    }
    EXPECT_EQ(history.column, (3 * window + 2) % window);
  }
}

TEST(NoisePostfilter, TakesOnlyPowersOfTwoAsSize) {
  NoisePostfilter filter;
  for (const int refused : {0, -4, 1, 3, 300, 16384}) filter.setSize(refused);
  EXPECT_EQ(filter.size(), 256);
  for (const int size : {2, 8192}) {
    filter.setSize(size);
    Eigen::ArrayXcf spectrum = Eigen::ArrayXcf::Ones(size + 1);
    filter.process(spectrum, spectrum);
    EXPECT_TRUE(spectrum.isFinite().all());
  }
}

// As after a gain of 1e18, which a stored value can ask for.
TEST(NoisePostfilter, APriorRatioBeyondFloatLeavesTheNoiseAlone) {
  NoiseEstimator estimator(bins);
  const Eigen::ArrayXf steady = Eigen::ArrayXf::Ones(bins);
  for (int frame = 0; frame < 500; ++frame) estimator.update(steady, steady);
  const float before = estimator.noiseUnbiased[100];
  estimator.update(2.0F * steady, Eigen::ArrayXf::Constant(bins, 3e38F));
  EXPECT_EQ(estimator.noiseUnbiased[100], before);
}

TEST(NoisePostfilter, SettingsResetOnlyWhenAValueOfTheEstimatorChanges) {
  NoisePostfilter filter;
  Eigen::ArrayXcf input = Eigen::ArrayXcf::Ones(bins), output(bins);
  filter.process(input, output);
  NoiseEstimatorSettings noise;
  filter.applyParameters(noise, SpectralGainSettings{.floor1 = 0.5F});
  EXPECT_FALSE(filter.noiseEstimator.resetPending);
  EXPECT_EQ(filter.spectralGain.settings().floor1, 0.5F);
  noise.gamma1 = 4.0F;
  noise.windowFrames = 50;
  filter.applyParameters(noise, {});
  EXPECT_TRUE(filter.noiseEstimator.resetPending);
  EXPECT_EQ(filter.noiseEstimator.settings(), noise);

  // The parts that the audio thread runs: a history that does not fit is not taken.
  auto prepared = std::make_unique<NoiseHistory>(100, 30);
  filter.noiseEstimator.adopt(prepared);
  EXPECT_EQ(prepared->windowFrames, 30);
  prepared = std::make_unique<NoiseHistory>(bins, 30);
  filter.noiseEstimator.adopt(prepared);
  EXPECT_EQ(prepared->windowFrames, 50);
  EXPECT_EQ(filter.noiseEstimator.settings().windowFrames, 30);
}

}  // namespace
}  // namespace vellumic
