// How samples travel: delays, blocks, hops, flags and run states, at the device rate of 16 kHz
// (no conversion, exact to the sample) and at others.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "frontend/ResamplerBank.h"
#include "tests/frontend/PipelineRig.h"

namespace vellumic {
namespace {

constexpr std::size_t micDelay = 1024;  // samples
constexpr std::size_t overlap = 384;    // delay of the noise processing
constexpr std::size_t hop = 128;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

// The output of one microphone channel while noise plays on all; the same noise in `played`.
std::vector<float> playNoise(PipelineRig& rig, std::size_t channel, std::size_t frames,
                             std::vector<float>& played) {
  Noise noise(7);
  std::vector<float> heard;
  for (std::size_t n = 0; n < frames; ++n) {
    PipelineRig::Frame frame{};
    for (std::size_t c = 0; c < 8; ++c) frame[c] = noise();
    played.push_back(frame[channel]);
    heard.push_back(rig.run(frame)[channel]);
  }
  return heard;
}

TEST(PipelineFlow, BlocksDelayToTheSample) {
  for (const int blockSize : {1024, 512, 250}) {
    SCOPED_TRACE(blockSize);
    PipelineRig rig;
    rig.set(Raw::blockSize, static_cast<float>(blockSize));
    rig.apply();
    rig.pipeline.micHighPassEnabled = false;
    const std::size_t block = static_cast<std::size_t>(blockSize), delay = micDelay + block;

    std::vector<float> in0, in1;
    const std::vector<float> out1 = playNoise(rig, 1, 6000, in1);
    for (std::size_t n = 0; n < out1.size(); ++n)
      ASSERT_EQ(out1[n], n < delay ? 0.0F : in1[n - delay]) << n;

    // The first channel goes through the noise processing; a last partial slice does not.
    rig.begin(2);
    const std::vector<float> out0 = playNoise(rig, 0, 6000, in0);
    for (std::size_t n = 2 * delay; n < out0.size(); ++n) {
      if (n % block >= block / hop * hop) {
        ASSERT_EQ(out0[n], in0[n - delay]) << n;
      } else if (block % hop == 0) {
        ASSERT_NEAR(out0[n], in0[n - delay - overlap], 1e-5F) << n;
      }
    }
  }
}

TEST(PipelineFlow, FourChannelFormReturnsTwoMicrophonesAndCancelsNothing) {
  PipelineRig rig;
  rig.setStages(1.0F);
  rig.set(Raw::levelControl, 0.0F);
  rig.begin(6, true);  // four microphones, two of which the form cannot reach
  rig.handover.prepareStream(1024, 4, true);
  rig.apply();
  rig.pipeline.micHighPassEnabled = false;
  Noise noise(3);
  std::vector<float> first;
  for (std::size_t n = 0; n < 5000; ++n) {
    std::array<float, 4> frame{noise(), noise(), noise(), noise()};
    const auto given = frame;
    first.push_back(given[0]);
    rig.pipeline.processFrame12(frame.data());
    const float expected = n < 2048 ? 0.0F : first[n - 2048];
    ASSERT_EQ(frame, (std::array{expected, expected, given[2], given[3]})) << n;
  }
  EXPECT_EQ(rig.pipeline.probe().cancelledBlocks, 0);

  // A live reload runs the same object frame by frame in the plain form: references are silent.
  for (int n = 0; n < 3000; ++n) rig.run({0.1F, 0.1F});
  EXPECT_EQ(rig.pipeline.probe().referenceEnergy, 0.0F);
}

TEST(PipelineFlow, StagesDecideWhichChannelsComeOut) {
  for (const auto& [stage, alike] : {std::pair{Raw::beamformer, true},
                                     {Raw::noisePostfilter, true},
                                     {Raw::levelControl, true},
                                     {Raw::echoCancellation, false}}) {
    PipelineRig rig;
    rig.set(stage, 1.0F);
    rig.begin(4);
    Noise noise(5);
    PipelineRig::Frame frame{};
    for (int n = 0; n < 4000; ++n) frame = rig.run({noise(), noise(), noise(), noise(), 9.0F});
    EXPECT_EQ(frame[0] == frame[1] && frame[0] == frame[3], alike) << index(stage);
    EXPECT_NE(frame[0], 0.0F);
    EXPECT_EQ(frame[4], 9.0F) << "beyond the microphones";
  }
}

TEST(PipelineFlow, RunStatesHaveTheLastWord) {
  struct Case {
    float category, keep, master;
    bool runs, echo, level;
  };
  for (const Case& c : {Case{2.0F, 0.0F, 1.0F, true, true, true},        // speech forces
                        Case{2.0F, 0.0F, 0.5F, false, true, true},       // not beyond the master
                        Case{0.0F, 1.0F, 1.0F, true, false, true},       // default, kept
                        Case{4.0F, 0.0F, 1.0F, false, false, false},     // not kept
                        Case{1.0F, 1.0F, 1.0F, false, false, false}}) {  // raw
    PipelineRig rig;
    rig.set(Raw::levelControl, 1.0F);
    rig.set(Raw::keepInDefaultMode, c.keep);
    rig.set(Raw::masterEnable, c.master);
    rig.stream.category = c.category;
    rig.apply();
    EXPECT_EQ(rig.handover.settings().echoCancelEnabled, c.echo) << c.category;
    EXPECT_EQ(rig.handover.settings().level.levelControlEnabled, c.level) << c.category;
    const PipelineRig::Frame given{0.5F, -0.5F, 0.25F};
    EXPECT_EQ(rig.run(given) == given, !c.runs) << c.category;
  }
}

// Each pass over the block begins with a transient, as the memories come from the pass before.
TEST(PipelineFlow, BandTestRunsItsPassesOverTheBlock) {
  const auto level = [](float passes) {
    PipelineRig rig;
    rig.set(Raw::bandTest, 1.0F);
    rig.set(Raw::bandTestPasses, passes);
    rig.apply();
    float peak = 0.0F;
    for (int n = 0; n < 8192; ++n) {
      const float phase = 2.0F * std::numbers::pi_v<float> * static_cast<float>(n % 40) / 40.0F;
      const float sine = std::sin(phase);
      const float out = std::abs(rig.run({sine, sine})[1]);
      if (n > 6000 && n % 1024 > 512) peak = std::max(peak, out);
    }
    return peak;
  };
  const float through = level(0.0F);
  const auto attenuation = [&](float passes) {
    return 20.0F * std::log10(through / level(passes));
  };
  EXPECT_GT(through, 0.9F);
  EXPECT_NEAR(attenuation(1.0F), 12.3F, 0.6F);  // an octave below 800 Hz
  EXPECT_NEAR(attenuation(3.0F), 36.9F, 2.0F);
}

TEST(PipelineFlow, ALongBlockHasFewerPassesOfTheBandTest) {
  const auto output = [](float passes) {
    PipelineRig rig;
    rig.set(Raw::blockSize, 8192.0F);
    rig.set(Raw::bandTest, 1.0F);
    rig.set(Raw::bandTestPasses, passes);
    rig.apply();
    std::vector<float> out;
    for (int n = 0; n < 20000; ++n) out.push_back(rig.run({n % 40 < 20 ? 1.0F : -1.0F, 0.0F})[0]);
    return out;
  };
  const std::vector<float> most = output(100.0F);
  EXPECT_EQ(most, output(12.0F));  // 102400 samples
  EXPECT_NE(most, output(11.0F));
}

TEST(PipelineFlow, AMidBlockChangeStartsOverInSilence) {
  PipelineRig rig;
  rig.pipeline.micHighPassEnabled = false;  // its memories outlive the change
  for (int n = 0; n < 4096 + 900; ++n) rig.run({0.1F, 0.1F});
  rig.set(Raw::blockSize, 256.0F);  // seven slices were under way, two exist now
  rig.apply();
  for (int n = 0; n < 1024 + 256; ++n) ASSERT_EQ(rig.run({1.0F, 1.0F})[1], 0.0F) << n;
  EXPECT_NE(rig.run({1.0F, 1.0F})[1], 0.0F);
  // Sizes that are not taken change nothing.
  for (const float size : {0.0F, -5.0F, 127.0F, 16386.0F, 1022.0F, nan, 1e30F}) {
    rig.set(Raw::blockSize, size);
    rig.apply();
    EXPECT_NE(rig.run({1.0F, 1.0F})[1], 0.0F) << size;
  }
}

TEST(PipelineFlow, ABadSampleEntersAsZero) {
  for (const float bad : {nan, std::numeric_limits<float>::infinity(), -1e30F}) {
    PipelineRig spoiled, clean;
    Noise noise(1);
    for (int n = 0; n < 6000; ++n) {
      const float sample = noise();
      const bool hit = n % 700 == 3;
      ASSERT_EQ(spoiled.run({hit ? bad : sample, sample}),
                clean.run({hit ? 0.0F : sample, sample}));
    }
  }
}

// The 150 Hz high-pass has no stable form at an internal rate of 200 Hz.
TEST(PipelineFlow, RecoversFromAnAbsurdInternalRate) {
  PipelineRig rig;
  for (const float rate : {200.0F, 1.0F, 16000.0F}) {
    rig.set(Raw::internalRate, rate);
    rig.apply();
    Noise noise(2);
    for (int n = 0; n < 200000; ++n) ASSERT_TRUE(std::isfinite(rig.run({noise(), noise()})[1]));
  }
  EXPECT_NE(rig.run({0.1F, 0.1F})[1], 0.0F);
}

// Level of what is not the sine, relative to it: a repeated, lost or zeroed sample shows.
float distortionDb(PipelineRig& rig, double rate) {
  const int settle = static_cast<int>(rate * 0.5), length = static_cast<int>(rate);
  double s = 0.0, c = 0.0, total = 0.0;
  for (int n = 0; n < settle + length; ++n) {
    const double phase = 2.0 * std::numbers::pi * std::fmod(1000.0 * n / rate, 1.0);
    const double out = static_cast<double>(rig.run({0.0F, static_cast<float>(std::sin(phase))})[1]);
    if (n < settle) continue;
    s += out * std::sin(phase);
    c += out * std::cos(phase);
    total += out * out;
  }
  const double sine = 2.0 * (s * s + c * c) / length;
  EXPECT_GT(sine, 0.4 * length);
  return static_cast<float>(10.0 * std::log10(std::max(total - sine, 1e-30) / sine));
}

TEST(PipelineFlow, EveryDeviceRateComesThroughWithoutAGlitch) {
  for (const float rate : {22050.0F, 24000.0F, 44100.0F, 48000.0F, 88200.0F, 96000.0F, 192000.0F}) {
    PipelineRig rig;
    rig.stream.deviceRate = rate;
    rig.apply();
    EXPECT_LT(distortionDb(rig, static_cast<double>(rate)), -90.0F) << rate;
  }
}

TEST(PipelineFlow, RunsOfFramesGiveWhatSingleFramesGive) {
  constexpr std::size_t microphones = 3, width = 5;
  for (const float rate : {8000.0F, 16000.0F, 22050.0F, 44100.0F, 48000.0F}) {
    PipelineRig single, runs;
    const auto setLevelControl = [&](float on) {
      for (PipelineRig* rig : {&single, &runs}) {
        rig->set(Raw::levelControl, on);
        rig->apply();
      }
    };
    for (PipelineRig* rig : {&single, &runs}) {
      rig->stream.deviceRate = rate;
      rig->set(Raw::blockSize, 300.0F);
      rig->begin(microphones);
    }
    Noise noise(8);
    std::minstd_rand random(1);
    std::vector<float> buffer;
    for (int call = 0; call < 300; ++call) {
      if (call % 100 == 60) setLevelControl(1.0F);
      if (call % 100 == 99) setLevelControl(0.0F);
      const std::size_t frames = 1 + random() % 300;
      buffer = noise.take(frames * width);
      auto expected = buffer;
      for (std::size_t n = 0; n < frames; ++n) single.pipeline.processFrame(&expected[n * width]);
      runs.pipeline.processFrames(buffer.data(), width, frames);
      // The fractional converters count outputs from call to call, so that rounding follows them.
      for (std::size_t n = 0; n < buffer.size(); ++n)
        ASSERT_NEAR(buffer[n], expected[n], 1e-6F) << rate << ' ' << call;
    }
  }
}

TEST(PipelineFlow, DelayAt48kHzIsTheConvertersAndTwoBlocks) {
  PipelineRig rig;
  rig.stream.deviceRate = 48000.0F;
  rig.apply();
  int peakAt = 0;
  float peak = 0.0F;
  for (int n = 0; n < 20000; ++n) {
    const float out = std::abs(rig.run({0.0F, n == 0 ? 1.0F : 0.0F})[1]);
    if (out > peak) {
      peak = out;
      peakAt = n;
    }
  }
  const ResamplerBank down(1, 48000.0, 16000.0), up(1, 16000.0, 48000.0);
  const int converters = down.framesBeforeOutput() + 3 * up.framesBeforeOutput();
  RecordProperty("converter_frames", converters);
  EXPECT_NEAR(peakAt, converters + 3 * 2048, 3);
}

}  // namespace
}  // namespace vellumic
