#include <gtest/gtest.h>

#include <limits>

#include "array/ArrayNoiseProcessing.h"
#include "array/OutputLevelControl.h"
#include "platform/FloatingPointMode.h"
#include "tests/array/Signals.h"

namespace vellumic {
namespace {

// Before any test cuts denormals, which would hide it.
TEST(ActivityEstimator, NoiseStaysNormalThroughSilence) {
  ActivityEstimator estimator(1, 125.0F);
  Eigen::ArrayXf probability(1);
  for (int i = 0; i < 1250; ++i) estimator.process(Eigen::ArrayXf::Zero(1), probability);
  EXPECT_GE(estimator.noisePower[0], std::numeric_limits<float>::min());
}

// The microphones' block as the pipeline holds it: hops are views with an outer stride.
Eigen::ArrayXXf noiseBlock(int samples, int microphones) {
  Eigen::ArrayXXf block(samples, microphones);
  for (int m = 0; m < microphones; ++m)
    block.col(m) = whiteNoise(samples, 0.01F, 30U + static_cast<unsigned>(m));
  return block;
}

// The output takes the place of the first microphone, as in the pipeline.
Eigen::ArrayXf processed(ArrayNoiseProcessing& chain, Eigen::ArrayXXf block) {
  for (Eigen::Index at = 0; at + chain.hopSize <= block.rows(); at += chain.hopSize)
    chain.process(block.middleRows(at, chain.hopSize), block.col(0).segment(at, chain.hopSize));
  return block.col(0);
}

TEST(ArrayNoiseProcessing, HasUnitGainAndADelayOfThreeHops) {
  for (const auto& [requested, taken] :
       {std::pair{64, 64}, {500, 512}, {512, 512}, {1024, 1024}, {2048, 2048}, {4096, 4096}}) {
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
    chain.processingEnabled = false;  // no state moves
    EXPECT_TRUE((processed(chain, input + 1.0F) == input.col(0) + 1.0F).all());
    EXPECT_EQ(chain.channels[0].inputBuffer[taken - 1], input(3 * taken - 1, 0));
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

TEST(ArrayNoiseProcessing, OutlivesBrokenSamplesAndLongSilence) {
  using Limits = std::numeric_limits<float>;
  cutDenormals();
  for (const float level : {Limits::quiet_NaN(), Limits::infinity(), 1e19F, -3e17F, 0.0F}) {
    ArrayNoiseProcessing chain(2, 512);
    Eigen::ArrayXXf input = noiseBlock(15 * rate, 2);
    input.middleRows(rate, 12 * rate).setConstant(level);
    const Eigen::ArrayXf output = processed(chain, input);
    EXPECT_TRUE(output.isFinite().all()) << level;
    EXPECT_LT(output.abs().maxCoeff(), 0.1F) << level;
    EXPECT_NEAR(decibels(output.tail(rate).square().mean() / output.head(rate).square().mean()),
                0.0F, 6.0F)
        << level;
  }
}

TEST(ArrayNoiseProcessing, HandsSettingsOn) {
  ArrayNoiseProcessing chain(3, 512);
  BeamformerAdaptive& beamformer = chain.beamformer;
  NoiseEstimator& estimator = chain.postfilter.noiseEstimator;
  EXPECT_NEAR(beamformer.covarianceRate, 0.0015987F, 1e-7F);
  EXPECT_EQ(beamformer.binsPerFrame, 16);
  chain.applyParameters({.covarianceTimeConstant = -1.0F, .thresholdScale = 2.0F},
                        {.windowFrames = 50}, {.floor1 = 0.5F});
  EXPECT_EQ(beamformer.covarianceRate, 1.0F);  // held to its lower bound
  EXPECT_EQ(beamformer.thresholdScale, 2.0F);
  EXPECT_EQ(estimator.settings(), (NoiseEstimatorSettings{.windowFrames = 50}));
  EXPECT_EQ(chain.postfilter.spectralGain.settings().floor1, 0.5F);

  // The parts that the audio thread runs: a history that does not fit is not taken.
  auto prepared = std::make_unique<NoiseHistory>(100, 30);
  chain.adopt(prepared);
  EXPECT_EQ(prepared->windowFrames, 30);
  prepared = std::make_unique<NoiseHistory>(257, 30);
  chain.adopt(prepared);
  EXPECT_EQ(prepared->windowFrames, 50);
  EXPECT_EQ(estimator.settings().windowFrames, 30);
}

TEST(ArrayNoiseProcessing, HoldsSizesAndBounds) {
  EXPECT_EQ(BeamformerAdaptive(1, 0, 125.0F).channelCount, 2);
  EXPECT_EQ(BeamformerAdaptive(1, 0, 125.0F).binsPerFrame, 0);
  NoisePostfilter filter;
  for (const int refused : {0, -4, 1, 3, 300, 16384}) filter.setSize(refused);
  EXPECT_EQ(filter.size(), 256);
  for (const int size : {2, 8192}) {
    filter.setSize(size);
    Eigen::ArrayXcf spectrum = Eigen::ArrayXcf::Ones(size + 1);
    filter.process(spectrum, spectrum);
    EXPECT_TRUE(spectrum.isFinite().all());
    spectrum.setConstant(1e25F);  // powers beyond float
    filter.process(spectrum, spectrum);
    EXPECT_EQ(filter.spectralGain.cleanPower[1], 0.0F);
  }
}

TEST(NoiseEstimator, OutlivesBadSettingsAndRatiosBeyondFloat) {
  NoiseEstimator estimator(257);
  const Eigen::ArrayXf steady = Eigen::ArrayXf::Ones(257);
  const auto run = [&](float powerPole, int frames) {
    estimator.applyParameters({.powerPole = powerPole, .windowFrames = 2});
    for (int frame = 0; frame < frames; ++frame) estimator.update(steady, steady);
  };
  run(1e30F, 10);
  ASSERT_FALSE(estimator.S.isFinite().any());
  run(0.9F, 500);
  for (const auto* values : {&estimator.S, &estimator.minimumS, &estimator.noiseBiased})
    EXPECT_TRUE(values->isFinite().all());
  // As after a gain of 1e18, which a stored value can ask for.
  const float before = estimator.noiseUnbiased[100];
  estimator.update(2.0F * steady, Eigen::ArrayXf::Constant(257, 3e38F));
  EXPECT_EQ(estimator.noiseUnbiased[100], before);
}

// Whatever the settings before were, and whatever they left behind.
TEST(OutputLevelControl, BadSettingsAreForgottenWithTheNextGoodOnes) {
  constexpr float odd[] = {0.0F, -1.0F, 1e30F, -1e30F, 1e-40F, -1e-3F, 1e3F, 1e-6F, 3.0F};
  LevelControlSettings good;
  good.levelControlEnabled = true;
  const auto play = [](OutputLevelControl& control, float level, int samples) {
    Eigen::ArrayXf sound = Eigen::ArrayXf::Constant(samples, level);
    control.process({sound.data(), static_cast<std::size_t>(samples)});
    return sound[samples - 1];
  };
  for (const float level : odd)
    for (const float gain : odd)
      for (const float time : odd) {
        OutputLevelControl control;
        LevelControlSettings bad = good;
        bad.levelStage = bad.limiterStage = {gain, level, time, time, time, true, time, level};
        bad.lookAheadTime = time;
        control.apply(bad);
        play(control, 0.1F, rate / 5);
        for (const LevelStage* stage : {&control.levelStage, &control.limiterStage}) {
          EXPECT_TRUE(stage->envelope >= 0.0F && stage->envelope <= 1e6F);
          for (const float reduction : {stage->smoothedReduction, stage->reductionFloor})
            EXPECT_TRUE(reduction >= 1.0F && reduction <= 1e12F) << reduction;
        }
        control.apply(good);
        const float heard = play(control, 0.03F, 3 * rate / 2);
        EXPECT_TRUE(heard > 0.004F && heard < 0.5F) << gain << " " << level << " " << time;
      }
  OutputLevelControl control;  // louder than sound can be
  control.apply(good);
  play(control, 12.0F, rate);
  control.apply(good);
  EXPECT_EQ(control.levelStage.envelope, 0.0F);
}

}  // namespace
}  // namespace vellumic
