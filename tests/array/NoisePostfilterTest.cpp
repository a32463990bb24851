#include <gtest/gtest.h>

#include "array/NoisePostfilter.h"
#include "array/StftChannel.h"
#include "platform/FloatingPointMode.h"
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

TEST(NoisePostfilter, SmoothsOverBinsWithUnequalEdges) {
  Eigen::ArrayXf out(5);
  frequencySmooth(Eigen::ArrayXf::Constant(5, 4.0F), out);
  EXPECT_EQ(out[0], 3.0F);
  EXPECT_EQ(out[2], 4.0F);
  EXPECT_EQ(out[4], 4.0F);
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

TEST(NoisePostfilter, FirstFrameAfterAResetTakesItsOwnPowerForNoise) {
  NoisePostfilter filter;
  filter.spectralGain.apply({.floor1 = 0.01F, .floor2 = 0.01F});
  const Eigen::ArrayXcf input = Eigen::ArrayXcf::Constant(bins, 10.0F);
  Eigen::ArrayXcf output(bins);
  filter.process(input, output);
  EXPECT_NEAR(std::abs(output[100]), 10.0F, 0.1F);  // no noise known yet
  filter.reset();
  filter.process(input, output);
  EXPECT_FALSE(filter.noiseEstimator.resetPending);
  EXPECT_NEAR(filter.noiseEstimator.noiseBiased[100], 100.0F, 1.0F);
  EXPECT_NEAR(std::abs(output[100]), 0.1F, 0.01F);  // the least gain, whatever came before
}

TEST(NoisePostfilter, SpeechLeavesTheSecondSmoothedSpectrumAlone) {
  NoiseEstimator estimator(bins);
  Eigen::ArrayXf power = Eigen::ArrayXf::Ones(bins), clean = Eigen::ArrayXf::Zero(bins);
  for (int frame = 0; frame < 500; ++frame) estimator.update(power, clean);
  power = 1000.0F;
  for (int frame = 0; frame < 20; ++frame) estimator.update(power, clean);
  EXPECT_GT(estimator.S[100], 600.0F);
  EXPECT_NEAR(estimator.S2[100], 1.0F, 1e-3F);
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

// One bin of full gain: the Hamming window spreads it over its neighbours with 0.54 to 0.23.
TEST(SpectralGain, ShapingSmoothsOverBinsAndKeepsTheEnergy) {
  SpectralGain spectralGain(bins);
  Eigen::ArrayXf power = Eigen::ArrayXf::Zero(bins);
  power[80] = 1e6F;
  const Eigen::ArrayXf gain = spectralGain.compute(power, Eigen::ArrayXf::Ones(bins));
  const auto meanSquare = [](const Eigen::ArrayXf& g) {
    return (2.0F * g.square().sum() - g[0] * g[0] - g[256] * g[256]) / 512.0F;
  };
  Eigen::ArrayXf passes = Eigen::ArrayXf::Constant(bins, 0.3162F);
  passes[80] = 1.0F;
  EXPECT_NEAR(meanSquare(gain) / meanSquare(passes), 1.0F, 1e-3F);
  EXPECT_NEAR((gain[80] - gain[150]) / (gain[81] - gain[150]), 0.54F / 0.23F, 0.05F);
  EXPECT_NEAR(gain[79], gain[81], 1e-3F);
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

// Spectra of a signal, one frame a column.
Eigen::ArrayXXcf framesOf(const Eigen::ArrayXf& signal) {
  StftChannel channel;
  Eigen::ArrayXXcf frames(bins, signal.size() / hop);
  for (Eigen::Index f = 0; f < frames.cols(); ++f)
    channel.analyzeFrame(signal.segment(f * hop, hop), frames.col(f));
  return frames;
}

float powerOf(const Eigen::ArrayXXcf& frames, float fromSecond, float toSecond) {
  const auto first = static_cast<Eigen::Index>(fromSecond * framesPerSecond);
  const auto last = static_cast<Eigen::Index>(toSecond * framesPerSecond);
  return frames.middleCols(first, last - first).abs2().sum();
}

// Filters noise + speech in place; the gains act on the speech alone as well.
void filter(NoisePostfilter& postfilter, Eigen::ArrayXXcf& sum, Eigen::ArrayXXcf& speech) {
  for (Eigen::Index f = 0; f < sum.cols(); ++f) {
    const Eigen::ArrayXf before = sum.col(f).abs().max(1e-20F);
    postfilter.process(sum.col(f), sum.col(f));
    speech.col(f) *= sum.col(f).abs() / before;
  }
}

// Silence, noise from 0.16 s, talking from 6 s, ten seconds of digital silence, all again.
TEST(NoisePostfilter, SuppressesStationaryNoiseAndKeepsSpeech) {
  cutDenormals();
  constexpr int lead = 20 * hop, noiseOnly = 6 * rate, talk = 6 * rate;
  Eigen::ArrayXf noise = Eigen::ArrayXf::Zero(lead + noiseOnly + talk), speech = noise;
  noise.tail(noiseOnly + talk) = whiteNoise(noiseOnly + talk, 0.01F, 5);
  speech.tail(talk) = speechLike(talk);
  const Eigen::ArrayXXcf noiseFrames = framesOf(noise), speechFrames = framesOf(speech);
  NoisePostfilter postfilter;
  for (const char* pass : {"first", "after ten seconds of silence"}) {
    Eigen::ArrayXXcf sumOut = noiseFrames + speechFrames, speechOut = speechFrames;
    filter(postfilter, sumOut, speechOut);
    const float suppressed =
        decibels(powerOf(noiseFrames, 4.16F, 6.16F) / powerOf(sumOut, 4.16F, 6.16F));
    const float lost =
        decibels(powerOf(speechFrames, 6.16F, 12.16F) / powerOf(speechOut, 6.16F, 12.16F));
    std::printf("[ measured ] %s: noise lowered by %.2f dB, speech by %.3f dB\n", pass, suppressed,
                lost);
    EXPECT_GT(suppressed, 8.0F) << pass;
    EXPECT_LT(lost, 1.0F) << pass;
    Eigen::ArrayXXcf silence = Eigen::ArrayXXcf::Zero(bins, 10 * framesPerSecond);
    filter(postfilter, silence, silence);
    EXPECT_TRUE((silence == std::complex<float>(0.0F)).all());
  }
}

TEST(NoisePostfilter, TracksAStepUpInNoiseWithinFourSeconds) {
  Eigen::ArrayXf noise = whiteNoise(11 * rate, 0.001F, 6);
  noise.tail(6 * rate) *= 10.0F;  // 20 dB
  const Eigen::ArrayXXcf frames = framesOf(noise);
  Eigen::ArrayXXcf out = frames, unused = frames;
  NoisePostfilter postfilter;
  filter(postfilter, out, unused);
  const float after = powerOf(frames, 9.0F, 11.0F);
  const float suppressed = decibels(after / powerOf(out, 9.0F, 11.0F));
  const float level = decibels(postfilter.noiseEstimator.noiseBiased.mean() /
                               (after / static_cast<float>(2 * framesPerSecond * bins)));
  std::printf(
      "[ measured ] 4 s after the step: noise lowered by %.2f dB, estimate off by %.2f dB\n",
      suppressed, level);
  EXPECT_GT(suppressed, 8.0F);
  EXPECT_NEAR(level, 0.0F, 0.5F);
}

}  // namespace
}  // namespace vellumic
