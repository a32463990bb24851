// Sounds and command lines for the renderer's tests.
#pragma once

#include <cmath>

#include "tests/tools/CommandLine.h"
#include "tools/WaveFile.h"
#include "tools/render/RenderMain.h"

namespace vellumic::tools {

class RenderFiles : public InOwnFolder {
 protected:
  static void wave(const std::string& name, WaveFormat format, const std::vector<float>& samples) {
    writeWave(name, {.format = format, .samples = samples});
  }
  // The first channel.
  static std::vector<float> heard(const std::string& name) {
    const WaveData wave = readWave(name);
    std::vector<float> channel;
    for (std::size_t n = 0; n < wave.samples.size();
         n += static_cast<std::size_t>(wave.format.channels))
      channel.push_back(wave.samples[n]);
    return channel;
  }

  static ToolRun run(const std::string& words) { return captured(renderMain, words); }
  static ToolRun rendered(const std::string& words) {
    SCOPED_TRACE(words);
    return succeeded(run(words));
  }
  // Each is refused for what its second text names, and nothing is written.
  static void expectRefused(const std::string& files,
                            std::vector<std::pair<std::string, const char*>> cases) {
    for (const auto& [words, named] : cases) {
      expectRefusal(run(words + files), named);
      EXPECT_FALSE(std::filesystem::exists("out.wav")) << words;
    }
  }
};

// Noise without much above a third of the rate, the same on all channels.
inline std::vector<float> softNoise(std::size_t frames, std::size_t channels, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> sample(-0.1F, 0.1F);
  std::vector<float> noise;
  float smooth = 0.0F;
  for (std::size_t n = 0; n < frames; ++n) {
    smooth += 0.4F * (sample(random) - smooth);
    noise.insert(noise.end(), channels, smooth);
  }
  return noise;
}

}  // namespace vellumic::tools
