// Files and command lines for the renderer's tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tools/WaveFile.h"
#include "tools/render/RenderMain.h"

namespace vellumic::tools {

class RenderFiles : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(folder_); }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  std::string text(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  std::string wave(const std::string& name, WaveFormat format,
                   const std::vector<float>& samples) const {
    writeWave(path(name), {.format = format, .samples = samples});
    return path(name);
  }

  struct Outcome {
    int exitCode;
    std::string printed, complained;
  };
  static Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "vellumic-render");
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int exitCode = renderMain(static_cast<int>(argv.size()), argv.data());
    return {.exitCode = exitCode,
            .printed = testing::internal::GetCapturedStdout(),
            .complained = testing::internal::GetCapturedStderr()};
  }

 private:
  std::filesystem::path folder_ = std::filesystem::temp_directory_path() /
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
