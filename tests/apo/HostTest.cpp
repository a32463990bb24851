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

#include "tests/control/ServiceObjects.h"
#include "tests/support/RunProgram.h"
#include "tests/tools/CommandLine.h"
#include "tools/ProgramPath.h"
#include "tools/WaveFile.h"

namespace vellumic::tools {
namespace {

// The number behind a label, or -1.
double numberAfter(const std::string& label, const std::string& text) {
  const std::size_t place = text.find(label);
  return place == std::string::npos ? -1.0 : std::atof(text.c_str() + place + label.size());
}

class Host : public testing::Test {
 protected:
  Host() { std::filesystem::create_directories(folder); }
  ~Host() override { std::filesystem::remove_all(folder); }

  // Both streams in `printed`.
  ToolRun run(const std::string& program, const std::string& arguments) const {
    const std::string command = (programFolder() / (program + ".exe")).string() + " " + arguments +
                                " > " + path("log.txt") + " 2>&1";
    const int code = test::runProgram(command);
    return {.exitCode = code, .printed = contents(path("log.txt")), .complained = ""};
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
    const ToolRun hosted =
        run("vellumic-host", "--endpoint array4 " + arguments + path("host.wav"));
    const ToolRun rendered = run("vellumic-render", arguments + path("render.wav"));
    ASSERT_EQ(hosted.exitCode, 0) << hosted.printed;
    ASSERT_EQ(rendered.exitCode, 0) << rendered.printed;
    EXPECT_EQ(hosted.printed.find("warning"), std::string::npos) << hosted.printed;
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
    const ToolRun result =
        run("vellumic-host", arguments + path("three.wav") + " " + path("out.wav"));
    EXPECT_EQ(result.exitCode, 1);
    expectParts(result.printed, {part});
  }
}

// Two effects on one live microphone, their setting changed every second, pinged every second.
TEST_F(Host, LiveWithReloads) {
  std::ofstream(path("change.toml")) << "noise.enabled = false\nequalizer.enabled = true\n";
  const ToolRun live =
      run("vellumic-host",
          "--endpoint array4 --class mfx --class efx --mode speech --settings "
          "settings/factory.toml --reload " +
              path("change.toml") +
              " --reload-every 1 --service --monitor \"Monitor of speaker\" --live 10 " +
              path("live.wav"));
  ASSERT_EQ(live.exitCode, 0) << live.printed;
  for (const char* counted : {"Reloads: ", "mfx seen ", "efx seen "})
    EXPECT_GE(numberAfter(counted, live.printed), 5.0) << live.printed;
  // Periods are missed on a busy machine too: what counts is the thread's own time.
  const double ownTime = numberAfter("Audio thread: ", live.printed);
  EXPECT_GT(ownTime, 0.0) << live.printed;
  EXPECT_LT(ownTime, 20.0) << live.printed;
  const WaveData wave = readWave(path("live.wav"));
  EXPECT_GE(wave.frames(), 10U * 48000U);
  EXPECT_EQ(wave.format.channels, 4);
  EXPECT_TRUE(std::ranges::all_of(wave.samples, [](float s) { return std::isfinite(s); }));
}

}  // namespace
}  // namespace vellumic::tools
