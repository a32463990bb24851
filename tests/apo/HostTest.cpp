// The registered library under vellumic-host, against the renderer of the same build and on a
// microphone that never stops.
#include <cstring>
#include <random>

#include "tests/control/ServiceObjects.h"
#include "tests/support/RunProgram.h"
#include "tests/tools/RenderFiles.h"
#include "tools/ProgramPath.h"

namespace vellumic::tools {
namespace {

// The number behind a label, or -1.
double numberAfter(const std::string& label, const std::string& text) {
  const std::size_t place = text.find(label);
  return place == std::string::npos ? -1.0 : std::atof(text.c_str() + place + label.size());
}

const std::string settings =
    " --settings " + (std::filesystem::current_path() / "settings" / "").string();

class Host : public RenderFiles {
 protected:
  static ToolRun hosted(const std::string& words) {
    const std::string program = (programFolder() / "vellumic-host.exe").string();
    const int code = test::runProgram(program + " " + words + " >printed 2>complained");
    return {.exitCode = code, .printed = contents("printed"), .complained = contents("complained")};
  }
  // Bursts of noise, alike but not the same in all channels.
  static void noise(const std::string& name, int channels, int sampleRate, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> sample(0.0F, 0.1F);
    std::vector<float> samples;
    for (int frame = 0; frame < 3 * sampleRate; ++frame) {
      const float common = frame / (sampleRate / 4) % 2 == 0 ? sample(random) : 0.0F;
      for (int c = 0; c < channels; ++c) samples.push_back(common + 0.1F * sample(random));
    }
    wave(name, {.sampleRate = sampleRate, .channels = channels}, samples);
  }
};

TEST_F(Host, GivesTheRenderersSamples) {
  noise("four.wav", 4, 48000, 1);
  noise("two.wav", 2, 44100, 2);
  noise("one.wav", 1, 16000, 3);
  noise("far.wav", 2, 48000, 4);
  const std::string factory = settings + "factory.toml --far far.wav ",
                    speech = settings + "speech_equalizer.toml ";
  const test::ServiceObjects service;
  for (const std::string& line :
       {"--class efx" + speech + "four.wav", "--class efx" + speech + "one.wav",
        "--class mfx --mode speech" + factory + "four.wav",
        "--class mfx --mode default" + factory + "two.wav",
        "--class mfx --mode speech" + factory + "one.wav",
        "--class kdmfx --mode speech" + factory + "four.wav",
        "--class kdmfx --mode default" + factory + "two.wav"}) {
    SCOPED_TRACE(line);
    const ToolRun run = succeeded(hosted("--endpoint array4 " + line + " host.wav"));
    const std::string told = run.printed + run.complained;
    EXPECT_EQ(told.find("warning"), std::string::npos) << told;
    rendered(line + " render.wav");
    const WaveData a = readWave("host.wav"), b = readWave("render.wav");
    ASSERT_EQ(a.samples.size(), b.samples.size());
    EXPECT_EQ(std::memcmp(a.samples.data(), b.samples.data(), a.samples.size() * sizeof(float)), 0);
    const WaveData input = readWave(line.substr(line.rfind(' ') + 1));
    EXPECT_NE(a.samples, input.samples);  // something was done
    // The effect, in a process of its own, found its microphone among the real ones.
    EXPECT_TRUE(std::wstring(service.block().deviceId.data()).starts_with(L"{0.0.1.00000000}.{"));
  }
}

TEST_F(Host, TellsWhatIsWrongInOneLine) {
  noise("three.wav", 3, 48000, 1);
  for (const auto& [arguments, part] : {std::pair("--class lfx", "efx, mfx or kdmfx"),
                                        {"--endpoint nowhere", "array8"},
                                        {"--endpoint array4", "refuses"},
                                        {"--reload-every 1", "--service"}})
    expectRefusal(hosted(std::string(arguments) + " three.wav out.wav"), part);
}

// Two effects on one live microphone, their setting changed every second, pinged every second.
TEST_F(Host, LiveWithReloads) {
  text("change.toml", "noise.enabled = false\nequalizer.enabled = true\n");
  const ToolRun live =
      succeeded(hosted("--endpoint array4 --class mfx --class efx --mode speech" + settings +
                       "factory.toml --reload change.toml --reload-every 1 --service "
                       "--monitor \"Monitor of speaker\" --live 10 live.wav"));
  for (const char* counted : {"Reloads: ", "mfx seen ", "efx seen "})
    EXPECT_GE(numberAfter(counted, live.printed), 5.0) << live.printed;
  // Periods are missed on a busy machine too: what counts is the thread's own time.
  const double ownTime = numberAfter("Audio thread: ", live.printed);
  EXPECT_GT(ownTime, 0.0) << live.printed;
  EXPECT_LT(ownTime, 20.0) << live.printed;
  const WaveData wave = readWave("live.wav");
  EXPECT_GE(wave.frames(), 10U * 48000U);
  EXPECT_EQ(wave.format.channels, 4);
  EXPECT_TRUE(std::ranges::all_of(wave.samples, [](float s) { return std::isfinite(s); }));
}

}  // namespace
}  // namespace vellumic::tools
