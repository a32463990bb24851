// Two loudspeakers, sparse echo paths shorter than a block, two microphones that hear the same.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <span>
#include <vector>

#include "echo/EchoCanceller.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic::testing {

#ifdef VELLUMIC_SHORT_TESTS
inline constexpr int patience = 1;
#else
inline constexpr int patience = 3;  // long tests run this many times longer
#endif

class EchoScene {
 public:
  struct Tap {
    int delay;  // samples
    float gain;
  };
  struct Levels {
    float left = 0.3F, right = 0.3F;  // standard deviation
    float shared = 0.0F;              // of a signal that both loudspeakers play
    float near = 0.001F;              // talker or noise at the microphone
    bool muted = false;               // the first microphone delivers zeros
  };

  explicit EchoScene(int blockLength = 1024) : length(static_cast<std::size_t>(blockLength)) {
    for (auto& reference : references) reference.resize(2 * length);
    for (auto* samples : {&microphone, &second, &echo}) samples->resize(length);
    for (std::size_t r = 0; r < 2; ++r)
      for (int i = 0; i < 24; ++i) {
        const int delay = static_cast<int>(length) / 10 + 7 * i % (static_cast<int>(length) / 2);
        paths[r].push_back({delay, 0.4F * noise() * std::exp(-0.15F * static_cast<float>(i))});
      }
  }

  // One block further; the references' new samples are the second half.
  void advance(const Levels& levels) {
    for (auto& reference : references)
      std::copy(reference.begin() + static_cast<std::ptrdiff_t>(length), reference.end(),
                reference.begin());
    for (std::size_t i = 0; i < length; ++i) {
      const float shared = levels.shared * noise();
      references[0][length + i] = levels.left * noise() + shared;
      references[1][length + i] = levels.right * noise() + shared;
    }
    for (std::size_t i = 0; i < length; ++i) {
      echo[i] = 0.0F;
      for (std::size_t r = 0; r < 2; ++r)
        for (const Tap& tap : paths[r])
          echo[i] += tap.gain * references[r][length + i - static_cast<std::size_t>(tap.delay)];
      second[i] = echo[i] + levels.near * noise();
      microphone[i] = levels.muted ? 0.0F : second[i];
    }
  }
  std::span<const float> reference(std::size_t r) const {
    return std::span(references[r]).subspan(length);
  }
  float noise() { return normal(engine); }

  std::size_t length;
  std::array<std::vector<Tap>, 2> paths;
  std::array<std::vector<float>, 2> references;
  std::vector<float> microphone, second, echo;

 private:
  std::minstd_rand engine{7};
  std::normal_distribution<float> normal;
};

inline double energy(std::span<const float> samples) {
  double sum = 0.0;
  for (float sample : samples) sum += static_cast<double>(sample) * static_cast<double>(sample);
  return sum;
}

// A canceller in a scene, and one of the second microphone that shares the references.
struct EchoBench {
  EchoBench(EchoScene& theScene, const EchoCancellerSettings& settings = {})
      : scene(theScene),
        spectra(static_cast<int>(scene.length)),
        canceller(static_cast<int>(scene.length)),
        other(static_cast<int>(scene.length)),
        output(scene.length),
        otherOutput(output) {
    apply(settings);
  }

  void apply(const EchoCancellerSettings& settings) {
    spectra.apply(settings);
    canceller.apply(settings);
    other.apply(settings);
  }

  void step() {
    const RealtimeGuard guard;
    spectra.advance(scene.reference(0), scene.reference(1));
    canceller.process(spectra, scene.microphone, output);
    other.process(spectra, scene.second, otherOutput);
    EXPECT_EQ(guard.violations(), 0) << guard.first();
  }
  // Echo return loss enhancement over the blocks, dB.
  double run(int blocks, const EchoScene::Levels& levels = {}) {
    double before = 0.0, after = 0.0;
    for (int b = 0; b < blocks; ++b) {
      scene.advance(levels);
      step();
      before += energy(scene.echo);
      after += energy(output);
    }
    return 10.0 * std::log10(before / after);
  }

  EchoScene& scene;
  ReferenceSpectra spectra;
  EchoCanceller canceller, other;
  std::vector<float> output, otherOutput;
};

}  // namespace vellumic::testing
