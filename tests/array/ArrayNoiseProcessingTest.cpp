#include <gtest/gtest.h>

#include <cmath>
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
  for (int i = 0; i < 1250; ++i) estimator.process(Eigen::ArrayXf::Zero(1).eval(), probability);
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
  for (const int requested : {0, 64, 128, 256, 500, 512, 1024, 2048, 4096}) {
    const int taken = requested == 0 || requested == 500 ? 512 : requested;
    ArrayNoiseProcessing chain(2, requested);
    chain.beamformerEnabled = chain.postfilterEnabled = false;
    ASSERT_EQ(chain.frameSize, taken);
    EXPECT_EQ(chain.binCount, taken / 2 + 1);
    EXPECT_FLOAT_EQ(chain.beamformer.frameRate, 64000.0F / static_cast<float>(taken));
    EXPECT_EQ(chain.channels[0].analysisWindow[0], 0.0F);
    EXPECT_EQ(chain.channels[0].overlapSize, 3 * taken / 4);
    const Eigen::ArrayXXf input = noiseBlock(3 * taken, 2);
    const Eigen::ArrayXf output = processed(chain, input);
    const int delay = taken - taken / 4;
    EXPECT_LT(output.head(delay).abs().maxCoeff(), 1e-7F);
    const auto error = output.tail(3 * taken - delay) - input.col(0).head(3 * taken - delay);
    EXPECT_LT(error.abs().maxCoeff(), 1e-6F);
    chain.processingEnabled = false;  // no state moves
    Eigen::ArrayXf passed(taken / 4);
    chain.process(input.topRows(taken / 4), passed);
    EXPECT_TRUE((passed == input.col(0).head(taken / 4)).all());
    EXPECT_EQ(chain.channels[0].inputBuffer[taken - 1], input(3 * taken - 1, 0));
  }
}

// Windows of frames that move by half their length.
TEST(StftChannel, HasWindowsForHalfFrames) {
  StftChannel channel(64);
  channel.overlapPercent = 50;
  EXPECT_TRUE(channel.initChannel());
  EXPECT_NEAR(channel.analysisWindow.sum(), 32.5F, 1e-4F);
  EXPECT_NEAR(channel.synthesisWindow.sum(), 64.0F * 32.0F / 32.5F, 1e-3F);
}

TEST(ArrayNoiseProcessing, InitStartsOver) {
  ArrayNoiseProcessing chain(2, 512);
  EXPECT_TRUE(chain.beamformerEnabled && chain.postfilterEnabled);
  chain.postfilterEnabled = false;
  const bool& reset = chain.postfilter.noiseEstimator.resetPending;
  const Eigen::ArrayXXf input = noiseBlock(600 * hop, 2);  // to the end of what starts as activity
  const Eigen::ArrayXf first = processed(chain, input);
  EXPECT_FALSE(reset);
  EXPECT_TRUE(chain.init(true));
  EXPECT_TRUE(reset);
  EXPECT_TRUE((processed(chain, input) == first).all());
}

TEST(ArrayNoiseProcessing, ABinWithoutSolutionDoesNotStayInThePostfilter) {
  ArrayNoiseProcessing chain(2, 512);
  const Eigen::ArrayXXf input = noiseBlock(20 * hop, 2);
  chain.beamformer.weights.real.row(40).setConstant(std::numeric_limits<float>::quiet_NaN());
  chain.beamformer.weights.real.row(50).setConstant(1e30F);
  EXPECT_TRUE(processed(chain, input).isFinite().all());
  EXPECT_TRUE(chain.postfilter.noiseEstimator.S.isFinite().all());
  chain.beamformerEnabled = false;  // bin 0 holds 256 times the level; its power may be 1e20
  for (const auto& [level, kept] : {std::pair{3.7e7F, true}, {4.1e7F, false}}) {
    processed(chain, Eigen::ArrayXXf::Constant(4 * hop, 2, level));
    EXPECT_EQ(std::abs(chain.beamformed[0]) > 0.0F, kept);
  }
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
  EXPECT_EQ(beamformer.thresholdScale, 1.0F);
  EXPECT_EQ(beamformer.binsPerFrame, 16);
  chain.applyParameters({.covarianceTimeConstant = -1.0F}, {.windowFrames = 50}, {});
  EXPECT_EQ(beamformer.covarianceTimeConstant, 1e-16F);  // held to its lower bound
  EXPECT_EQ(estimator.settings(), (NoiseEstimatorSettings{.windowFrames = 50}));

  // The parts that the audio thread runs: a history that does not fit is not taken.
  auto prepared = std::make_unique<NoiseHistory>(100, 30);
  chain.adopt(prepared);
  EXPECT_EQ(prepared->windowFrames, 30);
  prepared = std::make_unique<NoiseHistory>(257, 30);
  chain.adopt(prepared);
  EXPECT_EQ(prepared->windowFrames, 50);
  EXPECT_TRUE(prepared->untouched);
  EXPECT_EQ(estimator.settings().windowFrames, 30);
  for (const bool reset : {false, true}) {
    estimator.resetPending = false;
    chain.apply(NoiseEstimatorSettings{.gamma1 = 4.0F, .windowFrames = 99}, reset);
    EXPECT_EQ(estimator.settings(), (NoiseEstimatorSettings{.gamma1 = 4.0F, .windowFrames = 30}));
    EXPECT_EQ(estimator.resetPending, reset);
  }
}

TEST(ArrayNoiseProcessing, HoldsSizesAndBounds) {
  BeamformerAdaptive beamformer(1, 0, 0.1F);
  EXPECT_EQ(beamformer.channelCount, 2);
  EXPECT_EQ(beamformer.binsPerFrame, 8);  // of one bin, at one frame a second
  for (BoundedFloat* held : {&beamformer.powerRatioThreshold, &beamformer.binActivityThreshold,
                             &beamformer.activeBinFractionThreshold, &beamformer.thresholdScale,
                             &beamformer.binUpdateRate})
    EXPECT_EQ(*held = -1.0F, 0.0F);
  beamformer.enabled = false;
  Eigen::ArrayXcf output = Eigen::ArrayXcf::Ones(1);
  beamformer.process(Eigen::ArrayXXcf::Constant(1, 2, 3.0F).eval(), output);
  EXPECT_EQ(output[0], 3.0F);  // the first microphone
  ActivityEstimator& estimator = beamformer.estimators[0];
  for (BoundedFloat* time : {&estimator.smoothingTimeConstant, &estimator.noiseTimeConstant})
    EXPECT_EQ(*time = 0.0F, 1e-6F);
  BoundedFloat free;
  EXPECT_EQ(free = -3.0F, -3.0F);
  free = 5.0F;
  free.setUpperBound(2.0F);
  EXPECT_EQ(free, 2.0F);
  free.setLowerBound(3.0F);
  EXPECT_EQ(free = 1.0F, 3.0F);  // the lower bound comes last
  for (const int bins : {1, 2, 8, 9, 257}) {
    const int rows = planeRows(bins);
    EXPECT_TRUE(rows % 8 == 0 && rows >= bins + 7 && rows < bins + 15) << bins;
  }
  NoisePostfilter filter;
  for (const int refused : {0, -4, 1, 3, 300, 16384}) filter.setSize(refused);
  EXPECT_EQ(filter.size(), 256);
  for (const int size : {256, 2, 8192}) {
    filter.setSize(size);
    ASSERT_EQ(filter.size(), size);
    ASSERT_EQ(filter.spectralGain.window.size(), 2 * size);
    Eigen::ArrayXcf spectrum = Eigen::ArrayXcf::Ones(size + 1);
    filter.process(spectrum, spectrum);
    EXPECT_TRUE(spectrum.isFinite().all());
    EXPECT_GT(filter.spectralGain.cleanPower.minCoeff(), 0.0F);
    spectrum.setConstant(1e25F);  // powers beyond float
    filter.process(spectrum, spectrum);
    EXPECT_EQ(filter.spectralGain.cleanPower[1], 0.0F);
  }
}

// All bins at a floor of 3e-6: what the window leaves of their energy counts as 1e-10.
TEST(SpectralGain, TakesNoLessThanALeastEnergy) {
  SpectralGain gain(3);
  gain.apply({.floor1 = 0.0F, .floor2 = 3e-6F});
  const Eigen::ArrayXf values = gain.compute(Eigen::ArrayXf::Zero(3), Eigen::ArrayXf::Ones(3));
  EXPECT_NEAR(values[1], 3e-6F * 0.77F * 3e-6F / 1e-5F, 1e-10F);
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
  run(0.9F, 0);
  EXPECT_TRUE((estimator.S == 0.0F).all());
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
  OutputLevelControl control;
  EXPECT_EQ(control.levelStage.gain, 0.0F);
  EXPECT_EQ(play(control, 12.0F, 1), 12.0F);  // off until settings come
  control.apply(good);
  play(control, 12.0F, rate);  // louder than sound can be
  control.apply(good);
  EXPECT_EQ(control.levelStage.envelope, 0.0F);
}

}  // namespace
}  // namespace vellumic
