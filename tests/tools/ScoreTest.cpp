#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tools/quality/Distortion.h"
#include "tools/quality/Intelligibility.h"
#include "tools/quality/Scene.h"
#include "tools/quality/SceneCatalogue.h"
#include "tools/quality/Score.h"
#include "tools/quality/Sources.h"

namespace vellumic::quality {
namespace {

Signal noise(double seconds, unsigned seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<float> normal(0.0F, 0.1F);
  Signal out(sceneSamples(seconds));
  for (float& x : out) x = normal(random);
  return out;
}

// Pink noise in syllables: what the measures need of speech.
Signal babble(double seconds, unsigned seed) {
  std::mt19937_64 random(seed);
  Signal out = pinkNoise(sceneSamples(seconds), random);
  std::uniform_real_distribution<float> level(0.0F, 1.0F);
  float target = 0.0F, now = 0.0F;
  for (std::size_t n = 0; n < out.size(); ++n) {
    if (n % 2000 == 0) target = std::pow(level(random), 2.0F);
    now += 0.002F * (target - now);
    out[n] *= 0.1F * now;
  }
  return out;
}

Signal mixed(const Signal& a, const Signal& b, double decibelsBelow) {
  const double gain = std::sqrt(energy(a) / energy(b)) * std::pow(10.0, -decibelsBelow / 20.0);
  Signal out = a;
  for (std::size_t n = 0; n < out.size(); ++n) out[n] += static_cast<float>(gain) * b[n];
  return out;
}

TEST(Intelligibility, ForgivesLevelColourAndNoiseInSilence) {
  Signal clean = babble(8, 1);
  EXPECT_NEAR(Intelligibility(clean)(clean), 1.0, 1e-6);
  Signal heard(clean.size());
  for (std::size_t n = 1; n < clean.size(); ++n) heard[n] = 7.0F * (clean[n] - 0.8F * clean[n - 1]);
  const Signal tail = noise(4, 3);
  clean.resize(clean.size() + tail.size());
  heard.insert(heard.end(), tail.begin(), tail.end());
  EXPECT_GT(Intelligibility(clean)(heard), 0.97);
}

// The paper's figures 1 and 5: the measure grows with the signal-to-noise ratio, from near 0 to 1.
TEST(Intelligibility, GrowsWithTheSignalToNoiseRatio) {
  const Signal clean = babble(12, 1), other = noise(12, 2);
  const Intelligibility measure(clean);
  EXPECT_LT(measure(other), 0.2);
  double before = measure(mixed(clean, other, -20));
  EXPECT_LT(before, 0.45);
  for (const double snr : {-10.0, -5.0, 0.0, 5.0, 10.0, 20.0}) {
    const double now = measure(mixed(clean, other, snr));
    EXPECT_GT(now, before) << snr;
    before = now;
  }
  EXPECT_GT(before, 0.9);
}

TEST(Distortion, FilterInvariantSdrForgivesAFilterButNotNoise) {
  const Signal clean = noise(4, 1), other = noise(4, 2);
  Signal filtered(clean.size());
  for (std::size_t n = 30; n < clean.size(); ++n)
    filtered[n] = 0.5F * clean[n] - 0.3F * clean[n - 7] + 0.2F * clean[n - 30];
  const FilterInvariantSdr measure(clean);
  EXPECT_GT(measure(filtered), 30.0);
  EXPECT_LT(scaleInvariantSdr(clean, filtered), 6.0);
  EXPECT_NEAR(measure(mixed(filtered, other, 12)), 12.0, 0.3);
}

// Ten frames in perfect shape count as 35 dB, those a tenth too loud or soft as 20, silent ones
// not.
TEST(Distortion, SegmentalSnrIsHeldPerFrameAndSkipsSilence) {
  const Signal burst = noise(0.032, 1), hiss = noise(0.032, 2);
  Signal clean, heard;
  for (int frame = 0; frame < 40; ++frame)
    for (std::size_t n = 0; n < burst.size(); ++n) {
      const float gain = frame >= 20 ? 1.0F : frame % 2 ? 0.9F : 1.1F;
      clean.push_back(frame < 30 ? burst[n] : 0.0F);
      heard.push_back(frame < 30 ? gain * burst[n] : 1e-3F * hiss[n]);
    }
  EXPECT_NEAR(segmentalSnr(clean, heard), 25.0, 0.2);
}

// A scene's parts handed to the scorer as if a chain had made them.
TEST(Scorer, ReadsKnownAttenuationsBack) {
  SceneSpec spec = *sceneNamed("desk", 3, 1);
  const Scene scene = makeScene(spec, babble(20, 5), babble(20, 6));
  Signal output(scene.mix[0].size());
  for (std::size_t n = 0; n < output.size(); ++n)
    output[n] = 0.5F * scene.speech[0][n] + 0.1F * scene.noise[0][n] + 0.01F * scene.echo[0][n];
  const Scorer scorer(spec, scene);
  const Figures figures = scorer(output).figures;
  EXPECT_NEAR(*figures[Figure::noiseAttenuation], 20.0, 0.1);
  EXPECT_NEAR(*figures[Figure::speechLoss], 6.0, 0.2);
  EXPECT_NEAR(*figures[Figure::snrGain], 14.0, 0.3);
  EXPECT_GT(*figures[Figure::erle], 30.0);
  EXPECT_LE(*figures[Figure::erle], 40.0);
  EXPECT_GT(*figures[Figure::doubleTalkSdr], 25.0);
  EXPECT_GT(*figures[Figure::stoi], *figures[Figure::stoiIn] - 0.001);
  EXPECT_EQ(*figures[Figure::timeTo20Db], 0.5);

  // A large block moves the microphones by more than its own half against the references.
  output.insert(output.begin(), 2000, 0.0F);
  EXPECT_NEAR(*scorer(output).figures[Figure::nearSdr], *figures[Figure::nearSdr], 0.1);
}

// Without a talker nothing aligns the output: the first echo after a pause may come before its
// time.
TEST(Scorer, EarlyEchoAfterAPauseIsNoNoise) {
  const SceneSpec spec = *sceneNamed("far-pause", 3, 1);
  const Scene scene = makeScene(spec, babble(30, 5), babble(30, 6));
  Signal output = scene.noise[0];
  for (float& x : output) x *= 0.1F;
  for (std::size_t n = 0; n + 1600 < output.size(); ++n) output[n] += scene.echo[0][n + 1600];
  EXPECT_NEAR(*Scorer(spec, scene)(output).figures[Figure::noiseAttenuation], 20.0, 0.1);
}

}  // namespace
}  // namespace vellumic::quality
