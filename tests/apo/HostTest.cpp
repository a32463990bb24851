// The registered library under vellumic-host, against the renderer of the same build and on a
// microphone that never stops.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "tests/control/ServiceObjects.h"
#include "tests/support/RunProgram.h"
#include "tools/ProgramPath.h"
#include "tools/WaveFile.h"

namespace vellumic::tools {
namespace {

struct Result {
  int code = 99;
  std::string text;  // both streams

  // The number behind a label, or -1.
  double number(const std::string& label) const {
    const std::size_t place = text.find(label);
    return place == std::string::npos ? -1.0 : std::atof(text.c_str() + place + label.size());
  }
};

class Host : public testing::Test {
 protected:
  Host() { std::filesystem::create_directories(folder); }
  ~Host() override { std::filesystem::remove_all(folder); }

  Result run(const std::string& program, const std::string& arguments) const {
    const auto log = folder / "log.txt";
    const std::string command = (programFolder() / (program + ".exe")).string() + " " + arguments +
                                " > " + log.string() + " 2>&1";
    Result result;
    result.code = test::runProgram(command);
    std::stringstream text;
    text << std::ifstream(log).rdbuf();
    result.text = text.str();
    return result;
  }
  std::string path(const char* name) const { return (folder / name).string(); }

  // Bursts of noise, alike but not the same in all channels.
  void writeNoise(const char* name, int channels, int sampleRate, unsigned seed) const {
    WaveData wave{.format = {.sampleRate = sampleRate, .channels = channels}, .samples = {}};
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0F, 0.1F);
    for (int frame = 0; frame < 3 * sampleRate; ++frame) {
      const float common = frame / (sampleRate / 4) % 2 == 0 ? noise(random) : 0.0F;
      for (int c = 0; c < channels; ++c) wave.samples.push_back(common + 0.1F * noise(random));
    }
    writeWave(path(name), wave);
  }

  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() /
      ("vellumic-host-test-" + std::to_string(GetCurrentProcessId()));
};

TEST_F(Host, GivesTheRenderersSamples) {
  writeNoise("four.wav", 4, 48000, 1);
  writeNoise("two.wav", 2, 44100, 2);
  writeNoise("one.wav", 1, 16000, 3);
  writeNoise("far.wav", 2, 48000, 4);
  const std::string factory = "--settings settings/factory.toml --far " + path("far.wav") + " ";
  const std::string cases[] = {
      "--class efx --settings settings/speech_equalizer.toml four.wav",
      "--class efx --settings settings/speech_equalizer.toml one.wav",
      "--class mfx --mode speech " + factory + "four.wav",
      "--class mfx --mode default " + factory + "two.wav",
      "--class mfx --mode speech " + factory + "one.wav",
      "--class kdmfx --mode speech " + factory + "four.wav",
      "--class kdmfx --mode default " + factory + "two.wav",
  };
  const test::ServiceObjects service;
  for (const std::string& line : cases) {
    SCOPED_TRACE(line);
    const std::size_t name = line.rfind(' ') + 1;
    const std::string arguments = line.substr(0, name) + path(line.substr(name).c_str()) + " ";
    const Result hosted = run("vellumic-host", "--endpoint array4 " + arguments + path("host.wav"));
    const Result rendered = run("vellumic-render", arguments + path("render.wav"));
    ASSERT_EQ(hosted.code, 0) << hosted.text;
    ASSERT_EQ(rendered.code, 0) << rendered.text;
    EXPECT_EQ(hosted.text.find("warning"), std::string::npos) << hosted.text;
    const WaveData a = readWave(path("host.wav")), b = readWave(path("render.wav"));
    ASSERT_EQ(a.samples.size(), b.samples.size());
    EXPECT_EQ(std::memcmp(a.samples.data(), b.samples.data(), a.samples.size() * sizeof(float)), 0);
    const WaveData input = readWave(path(line.substr(name).c_str()));
    EXPECT_NE(a.samples, input.samples);  // something was done
    // The effect, in a process of its own, found its microphone among the real ones.
    EXPECT_TRUE(std::wstring(service.block().deviceId.data()).starts_with(L"{0.0.1.00000000}.{"));
  }
}

TEST_F(Host, TellsWhatIsWrongInOneLine) {
  writeNoise("three.wav", 3, 48000, 1);
  for (const auto& [arguments, part] : {std::pair("--class lfx ", "efx, mfx or kdmfx"),
                                        {"--endpoint nowhere ", "array8"},
                                        {"--endpoint array4 ", "refuses"},
                                        {"--reload-every 1 ", "--service"}}) {
    const Result result =
        run("vellumic-host", arguments + path("three.wav") + " " + path("out.wav"));
    EXPECT_EQ(result.code, 1) << result.text;
    EXPECT_NE(result.text.find(part), std::string::npos) << result.text;
  }
}

// Two effects on one live microphone, their setting changed every second, pinged every second.
TEST_F(Host, LiveWithReloads) {
  std::ofstream(path("change.toml")) << "noise.enabled = false\nequalizer.enabled = true\n";
  const Result live =
      run("vellumic-host",
          "--endpoint array4 --class mfx --class efx --mode speech --settings "
          "settings/factory.toml --reload " +
              path("change.toml") +
              " --reload-every 1 --service --monitor \"Monitor of speaker\" --live 10 " +
              path("live.wav"));
  ASSERT_EQ(live.code, 0) << live.text;
  for (const char* counted : {"Reloads: ", "mfx seen ", "efx seen "})
    EXPECT_GE(live.number(counted), 5.0) << live.text;
  // Periods are missed on a busy machine too: what counts is the thread's own time.
  EXPECT_GT(live.number("Audio thread: "), 0.0) << live.text;
  EXPECT_LT(live.number("Audio thread: "), 20.0) << live.text;
  const WaveData wave = readWave(path("live.wav"));
  EXPECT_GE(wave.frames(), 10U * 48000U);
  EXPECT_EQ(wave.format.channels, 4);
  EXPECT_TRUE(std::ranges::all_of(wave.samples, [](float s) { return std::isfinite(s); }));
}

}  // namespace
}  // namespace vellumic::tools
