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

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

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

// Stages come and go, so that one output converter serves all channels and hands over to theirs.
TEST(PipelineFlow, RunsOfFramesGiveWhatSingleFramesGive) {
  constexpr std::size_t microphones = 3, width = 5;
  for (const float rate : {8000.0F, 16000.0F, 22050.0F, 44100.0F, 48000.0F}) {
    PipelineRig single, runs;
    for (PipelineRig* rig : {&single, &runs}) {
      rig->stream.deviceRate = rate;
      rig->set(Raw::blockSize, 300.0F);
      rig->begin(microphones);
    }
    // The fractional converters count outputs from call to call, so that rounding follows them.
    const bool whole = rate == 8000.0F || rate == 16000.0F || rate == 48000.0F;
    Noise noise(8);
    std::minstd_rand random(1);
    std::vector<float> buffer;
    for (int call = 0; call < 300; ++call) {
      const Raw stage = std::array{Raw::levelControl, Raw::beamformer,
                                   Raw::noisePostfilter}[static_cast<std::size_t>(call / 100)];
      if (call % 100 == 40 || call % 100 == 80)
        for (PipelineRig* rig : {&single, &runs}) {
          rig->set(stage, call % 100 == 40 ? 1.0F : 0.0F);
          rig->apply();
        }
      const std::size_t frames = 1 + random() % 300;
      buffer = noise.take(frames * width);
      auto expected = buffer;
      for (std::size_t n = 0; n < frames; ++n) single.pipeline.processFrame(&expected[n * width]);
      runs.pipeline.processFrames(buffer.data(), width, frames);
      for (std::size_t n = 0; n < buffer.size(); ++n)
        ASSERT_NEAR(buffer[n], expected[n], whole ? 0.0F : 1e-6F) << rate << ' ' << call;
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
