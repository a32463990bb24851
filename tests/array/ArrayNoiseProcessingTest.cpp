#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "array/ArrayNoiseProcessing.h"
#include "platform/FloatingPointMode.h"
#include "platform/InstructionSet.h"
#include "tests/array/Signals.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic {
namespace {

// The microphones' block as the pipeline holds it: hops are views with an outer stride.
Eigen::ArrayXXf noiseBlock(int samples, int microphones) {
  Eigen::ArrayXXf block(samples, microphones);
  for (int m = 0; m < microphones; ++m)
    block.col(m) = whiteNoise(samples, 0.01F, 30U + static_cast<unsigned>(m));
  return block;
}

Eigen::ArrayXf processed(ArrayNoiseProcessing& chain, const Eigen::ArrayXXf& block) {
  Eigen::ArrayXf output(block.rows());
  for (Eigen::Index at = 0; at + chain.hopSize <= block.rows(); at += chain.hopSize)
    chain.process(block.middleRows(at, chain.hopSize), output.segment(at, chain.hopSize));
  return output;
}

class FrameSize : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(FrameSize, HasUnitGainAndADelayOfThreeHops) {
  const auto [requested, taken] = GetParam();
  ArrayNoiseProcessing chain(2, requested);
  chain.beamformerEnabled = chain.postfilterEnabled = false;
  ASSERT_EQ(chain.frameSize, taken);
  EXPECT_EQ(chain.hopSize, taken / 4);
  EXPECT_EQ(chain.binCount, taken / 2 + 1);
  EXPECT_FLOAT_EQ(chain.beamformer.frameRate, 64000.0F / static_cast<float>(taken));
  const Eigen::ArrayXXf input = noiseBlock(3 * taken, 2);
  const Eigen::ArrayXf output = processed(chain, input);
  const int delay = taken - taken / 4;
  EXPECT_LT(output.head(delay).abs().maxCoeff(), 1e-7F);
  const auto error = output.tail(3 * taken - delay) - input.col(0).head(3 * taken - delay);
  EXPECT_LT(error.abs().maxCoeff(), 1e-6F);
}
INSTANTIATE_TEST_SUITE_P(Sizes, FrameSize,
                         testing::Values(std::pair{64, 64}, std::pair{500, 512},
                                         std::pair{512, 512}, std::pair{1024, 1024},
                                         std::pair{4096, 4096}));

TEST(StftChannel, WindowsForHalfFrameStepsAddUpToOne) {
  StftChannel channel;
  channel.overlapPercent = 50;
  channel.hopSize = channel.overlapSize = 256;
  ASSERT_TRUE(channel.initChannel());
  EXPECT_NEAR(channel.analysisWindow[0], channel.analysisWindow[511], 1e-6F);
  const Eigen::ArrayXf gain = channel.analysisWindow * channel.synthesisWindow;
  EXPECT_LT((gain.head(256) + gain.tail(256) - 1.0F).abs().maxCoeff(), 0.01F);
}

TEST(ArrayNoiseProcessing, OutputMayBeTheFirstColumnOfTheInput) {
  for (const bool passThrough : {false, true}) {
    ArrayNoiseProcessing chain(3, 512);
    chain.processingEnabled = !passThrough;
    chain.postfilterEnabled = false;  // its smoothed spectra live through init
    Eigen::ArrayXXf block = noiseBlock(40 * hop, 3);
    const Eigen::ArrayXf expected = processed(chain, block);
    if (passThrough) {
      EXPECT_TRUE((expected == block.col(0)).all());
      EXPECT_TRUE((chain.channels[0].inputBuffer == 0.0F).all());  // no state moves
    }
    ASSERT_TRUE(chain.init(true));
    EXPECT_TRUE(chain.postfilter.noiseEstimator.resetPending);
    for (Eigen::Index at = 0; at < block.rows(); at += hop)
      chain.process(block.middleRows(at, hop), block.col(0).segment(at, hop));
    EXPECT_TRUE((block.col(0) == expected).all());
  }
}

TEST(ArrayNoiseProcessing, ABinWithoutSolutionDoesNotStayInThePostfilter) {
  ArrayNoiseProcessing chain(2, 512);
  const Eigen::ArrayXXf input = noiseBlock(20 * hop, 2);
  chain.beamformer.weights.real.row(40).setConstant(std::numeric_limits<float>::quiet_NaN());
  chain.beamformer.weights.real.row(50).setConstant(1e30F);
  EXPECT_TRUE(processed(chain, input).isFinite().all());
  EXPECT_TRUE(chain.postfilter.noiseEstimator.S.isFinite().all());
}

TEST(ArrayNoiseProcessing, BrokenSamplesAreOverWithTheirFrames) {
  using Limits = std::numeric_limits<float>;
  for (const float broken : {Limits::quiet_NaN(), Limits::infinity(), 1e19F, -3e17F}) {
    ArrayNoiseProcessing chain(2, 512);
    Eigen::ArrayXXf input = noiseBlock(3 * rate, 2);
    input.col(1).segment(rate, hop).setConstant(broken);
    const Eigen::ArrayXf output = processed(chain, input);
    EXPECT_TRUE(output.isFinite().all()) << broken;
    EXPECT_LT(output.abs().maxCoeff(), 0.1F) << broken;
    EXPECT_GT(output.tail(rate).square().mean(), 1e-6F) << broken;
  }
}

TEST(ArrayNoiseProcessing, LongSilenceDoesNotEndIt) {
  cutDenormals();
  ArrayNoiseProcessing chain(2, 512);
  const Eigen::ArrayXXf input = noiseBlock(2 * rate, 2);
  const float before = processed(chain, input).tail(rate).square().mean();
  EXPECT_TRUE((processed(chain, Eigen::ArrayXXf::Zero(12 * rate, 2)).tail(rate) == 0.0F).all());
  const float after = processed(chain, input).tail(rate).square().mean();
  EXPECT_NEAR(decibels(after / before), 0.0F, 3.0F);
}

// The instruction sets differ in the eigenvectors, exponentials and powers alone, by rounding.
TEST(ArrayNoiseProcessing, SoundsTheSameOnEveryInstructionSet) {
  cutDenormals();
  for (const int microphones : {2, 3, 8}) {
    Eigen::ArrayXXf input = noiseBlock(3 * rate, microphones);
    input.colwise() += speechLike(3 * rate);
    ArrayNoiseProcessing chain(microphones, 512), other(microphones, 512);
    const Eigen::ArrayXf expected = processed(chain, input);
    const ScopedInstructionSet base(InstructionSet::Base);
    const Eigen::ArrayXf output = processed(other, input);
    EXPECT_TRUE(
        (chain.beamformer.signalCovariance.planes == other.beamformer.signalCovariance.planes)
            .all());
    EXPECT_TRUE(
        (chain.beamformer.noiseCovariance.planes == other.beamformer.noiseCovariance.planes).all());
    EXPECT_LT(decibels((output - expected).square().sum() / expected.square().sum()), -90.0F)
        << microphones;
  }
}

}  // namespace
}  // namespace vellumic
