// Files and command lines for the renderer's tests.
#pragma once

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "tests/tools/CommandLine.h"
#include "tools/WaveFile.h"
#include "tools/render/RenderMain.h"

namespace vellumic::tools {

// In a folder of the test's own.
class RenderFiles : public testing::Test {
 protected:
  RenderFiles() {
    std::filesystem::create_directories(folder_);
    std::filesystem::current_path(folder_);
  }
  ~RenderFiles() override {
    std::filesystem::current_path(before_);
    std::filesystem::remove_all(folder_);
  }

  static std::string text(const std::string& name, const std::string& content) {
    std::ofstream(name, std::ios::binary) << content;
    return name;
  }
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

  static ToolRun run(const std::string& words) {
    std::vector<std::string> arguments = split(words, ' ');
    std::ranges::replace(arguments, "''", "");
    return captured(renderMain, arguments);
  }
  static ToolRun rendered(const std::string& words) {
    ToolRun outcome = run(words);
    EXPECT_EQ(outcome.exitCode, 0) << words << ": " << outcome.complained;
    return outcome;
  }
  // Each is refused by one line that holds the second text, and nothing is written.
  static void expectRefused(const std::string& files,
                            std::vector<std::pair<std::string, const char*>> cases) {
    for (const auto& [words, named] : cases) {
      const ToolRun outcome = run(words + files);
      EXPECT_EQ(outcome.exitCode, 1) << words;
      EXPECT_NE(outcome.complained.find(named), std::string::npos) << outcome.complained;
      EXPECT_EQ(std::ranges::count(outcome.complained, '\n'), 1) << outcome.complained;
      EXPECT_FALSE(std::filesystem::exists("out.wav")) << words;
    }
  }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
  const std::filesystem::path folder_ = std::filesystem::temp_directory_path() /
                                        ("vellumic-" + std::to_string(std::random_device{}()));
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
