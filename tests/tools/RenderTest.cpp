// vellumic-render from command line to output file.
#include <algorithm>
#include <cmath>

#include "filters/BiquadEqualizer.h"
#include "parameters/SettingsFile.h"
#include "tests/tools/RenderFiles.h"
#include "tools/render/CallTiming.h"

namespace vellumic::tools {
namespace {

constexpr const char* twoBands = R"([equalizer]
enabled = true
[equalizer.left.band1]
enabled = true
type = "peak"
frequency_hz = 1000
gain_db = 6
q = 1.0
[equalizer.right.band2]
enabled = true
type = "high_shelf"
frequency_hz = 3000
gain_db = -9
q = 0.7
)";

TEST_F(RenderFiles, TheEqualiserGivesExactlyWhatItsFiltersGive) {
  const std::vector<float> input = softNoise(1234, 3, 1);
  const std::string in = wave("in.wav", {.sampleRate = 44100, .channels = 3}, input);
  const std::string settings = text("eq.toml", twoBands);
  for (const char* block : {"1", "441", "5000"}) {
    const Outcome outcome =
        run({"--class", "efx", "--settings", settings, "--block", block, in, path("out.wav")});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.complained;
    EXPECT_NE(outcome.printed.find("equaliser (1 bands left, 1 right)"), std::string::npos);
    EXPECT_NE(outcome.printed.find("would refuse this stream: it takes 1, 2, 4 and 8 channels"),
              std::string::npos);

    RawValues values = factorySettings();
    SettingsWarnings warnings;
    applySettingsFile(settings, values, warnings);
    BiquadEqualizer equalizer;
    equalizer.setChannelCount(3);
    equalizer.applyParameters(EqualizerSettings::from(values), 44100.0F);
    const WaveData output = readWave(path("out.wav"));
    ASSERT_EQ(output.samples.size(), input.size());
    EXPECT_EQ(output.format.sampleRate, 44100);
    for (std::size_t frame = 0; frame < 1234; ++frame) {
      float slots[12] = {input[3 * frame], input[3 * frame + 1], input[3 * frame + 2]};
      equalizer.process(slots);
      for (std::size_t c = 0; c < 3; ++c) ASSERT_EQ(output.samples[3 * frame + c], slots[c]);
    }
  }
}

TEST_F(RenderFiles, SettingsComeInTheirOrder) {
  RawValues stored{};
  stored[index(Raw::masterEnable)] = 1.0F;
  stored[index(Raw::equalizerMaster)] = 1.0F;
  stored[index(bandSlot(0, 0, BandField::enable))] = 1.0F;
  stored[index(bandSlot(0, 0, BandField::gain))] = 0.5F;
  const std::string raw =
      text("raw", std::string(reinterpret_cast<const char*>(stored.data()), sizeof stored));
  const std::string quarter = text("quarter.toml", "equalizer.left.band1.gain = 0.25");
  const std::string in =
      wave("in.wav", {.sampleRate = 48000, .channels = 1}, std::vector<float>(10, 1.0F));
  const auto gainOf = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--class", "efx", in, path("out.wav")});
    EXPECT_EQ(run(arguments).exitCode, 0);
    return readWave(path("out.wav")).samples[5];
  };
  EXPECT_EQ(gainOf({}), 1.0F);
  EXPECT_EQ(gainOf({"--raw-parameters", raw}), 0.5F);
  EXPECT_EQ(gainOf({"--settings", quarter, "--raw-parameters", raw}), 0.25F);
  EXPECT_EQ(gainOf({"--set", "equalizer.left.band1.gain=0.125", "--raw-parameters", raw,
                    "--settings", quarter}),
            0.125F);
}

TEST_F(RenderFiles, AChangeActsFromItsTimeOnAndAFadeRampsIn) {
  const std::string in =
      wave("in.wav", {.sampleRate = 48000, .channels = 2}, std::vector<float>(2 * 48000, 1.0F));
  const std::string half = text("half.toml",
                                "equalizer.enabled = true\n"
                                "equalizer.left.band1 = {enabled = true, type = 0, gain = 0.5}");
  const std::string off = text("off.toml", "engine.enabled = false\nengine.fade = true");
  const Outcome outcome = run({"--class", "efx", "--change", "0.5:" + off, "--change",
                               "0.25:" + half, in, path("out.wav")});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.complained;
  const std::vector<float> output = readWave(path("out.wav")).samples;
  const auto left = [&](std::size_t frame) { return output[2 * frame]; };
  EXPECT_EQ(left(11999), 1.0F);
  EXPECT_EQ(left(12000), 0.5F);
  EXPECT_EQ(left(24000), 0.5F);
  EXPECT_NEAR(left(24000 + 5000), 0.75F, 1e-6F);  // ramp of 10000 frames
  EXPECT_EQ(left(24000 + 10080), 1.0F);
}

TEST_F(RenderFiles, TellsWhatASwitchOrARateDoesNotDo) {
  const std::string sound =
      wave("in.wav", {.sampleRate = 16000, .channels = 2}, std::vector<float>(2 * 1600, 0.1F));
  const std::string change = text("change.toml", "pipeline.internal_rate_hz = 24000");
  const struct {
    std::vector<std::string> options;
    std::string note;
  } cases[] = {
      {{"--mode", "speech", "--set", "echo.enabled=0"}, "note: the speech mode runs echo canc"},
      {{"--mode", "speech", "--set", "noise.enabled=0"}, "note: the speech mode runs noise supp"},
      {{"--mode", "speech"}, ""},
      {{"--set", "echo.enabled=0", "--set", "noise.enabled=0"}, ""},
      {{"--mode", "speech", "--set", "echo.enabled=0", "--set", "engine.enabled=0"}, ""},
      {{"--class", "kdmfx", "--mode", "speech", "--set", "noise.enabled=0"}, ""},
      {{"--far", sound, "--change", "0.05:" + change}, "from 16000 to 24000: a running stream"},
  };
  for (const auto& [options, note] : cases) {
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(), {sound, path("out.wav")});
    const Outcome outcome = run(arguments);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.complained;
    EXPECT_NE(outcome.complained.find(note), std::string::npos) << outcome.complained;
    EXPECT_EQ(outcome.complained.find("note: ") == std::string::npos, note.empty())
        << outcome.complained;
  }
}

struct DelayCase {
  const char* name;
  int rate;
  std::vector<std::string> options;
  bool far;
  friend void PrintTo(const DelayCase& test, std::ostream* out) { *out << test.name; }
};
class Delay : public RenderFiles, public testing::WithParamInterface<DelayCase> {};

// Where in `output` a stretch of `input` is found; both mono.
int lagOf(const std::vector<float>& input, const std::vector<float>& output, std::size_t from,
          int lowest, int highest) {
  int best = lowest;
  double largest = -1.0;
  for (int lag = lowest; lag <= highest; ++lag) {
    double sum = 0.0;
    for (std::size_t n = from; n < from + 4000; ++n)
      sum += static_cast<double>(input[n]) *
             output[static_cast<std::size_t>(static_cast<int>(n) + lag)];
    if (std::abs(sum) > largest) {
      largest = std::abs(sum);
      best = lag;
    }
  }
  return best;
}

TEST_P(Delay, TheStatedOneIsTheTrueOneAndAlignRemovesIt) {
  const int rate = GetParam().rate;
  const std::size_t frames = static_cast<std::size_t>(rate);
  const std::vector<float> mono = softNoise(frames, 1, 3);
  std::vector<float> stereo;
  for (const float value : mono) stereo.insert(stereo.end(), 2, value);
  std::vector<std::string> arguments = GetParam().options;
  if (GetParam().far)
    arguments.insert(arguments.end(),
                     {"--far", wave("far.wav", {.sampleRate = 48000, .channels = 2},
                                    std::vector<float>(2 * 48000, 0.0F))});
  arguments.insert(arguments.end(),
                   {"--set", "noise.enabled=0", "--set", "beamformer.enabled=0",
                    wave("in.wav", {.sampleRate = rate, .channels = 2}, stereo), path("out.wav")});
  const auto firstChannel = [&] {
    const WaveData output = readWave(path("out.wav"));
    std::vector<float> channel;
    for (std::size_t n = 0; n < output.samples.size(); n += 2) channel.push_back(output.samples[n]);
    return channel;
  };

  const int tolerance = std::max(2, rate / 16000);  // the pipeline counts in internal samples
  arguments.push_back("--tail");
  Outcome outcome = run(arguments);
  ASSERT_EQ(outcome.exitCode, 0) << outcome.complained;
  const int stated = std::stoi(outcome.printed.substr(outcome.printed.find("Delay: ") + 7));
  std::vector<float> output = firstChannel();
  ASSERT_EQ(output.size(), frames + static_cast<std::size_t>(stated));
  EXPECT_NEAR(lagOf(mono, output, frames / 2, stated - 200, stated + 200), stated, tolerance);

  arguments.back() = "--align";
  outcome = run(arguments);
  output = firstChannel();
  ASSERT_EQ(output.size(), frames);
  EXPECT_NEAR(lagOf(mono, output, frames / 2, -200, 200), 0, tolerance);
}
INSTANTIATE_TEST_SUITE_P(
    Paths, Delay,
    testing::Values(
        DelayCase{"bare16", 16000, {"--set", "echo.enabled=0", "--set", "level.enabled=0"}, false},
        DelayCase{"bare44", 44100, {"--set", "echo.enabled=0", "--set", "level.enabled=0"}, false},
        DelayCase{"bare48", 48000, {"--set", "echo.enabled=0", "--set", "level.enabled=0"}, false},
        DelayCase{"bare96", 96000, {"--set", "echo.enabled=0", "--set", "level.enabled=0"}, false},
        DelayCase{"level48", 48000, {"--set", "echo.enabled=0"}, false},
        DelayCase{"echo48", 48000, {"--set", "level.enabled=0"}, true},
        DelayCase{"echo16", 16000, {"--set", "level.enabled=0"}, true},
        DelayCase{"longestLookAhead",
                  16000,
                  {"--set", "echo.enabled=0", "--set", "limiter.look_ahead_s=1e30"},
                  false},
        DelayCase{"kdmfx48", 48000, {"--class", "kdmfx"}, false},
        DelayCase{"kdmfxMedia48", 48000, {"--class", "kdmfx", "--mode", "media"}, false}),
    [](const auto& test) { return test.param.name; });

// The far file plays into the microphone, 20 ms late: with --far it goes, without and in a gap of
// it (where the microphone is then the only one to hear it) it stays.
TEST_F(RenderFiles, TheFarFileIsTheEchoReference) {
  constexpr std::size_t seconds = 8, rate = 16000;
  const std::vector<float> far = softNoise(seconds * rate, 1, 5);
  std::vector<float> microphones;
  for (std::size_t n = 0; n < far.size(); ++n)
    microphones.insert(microphones.end(), 2, n < 320 ? 0.0F : 0.5F * far[n - 320]);
  const std::string in = wave("in.wav", {.sampleRate = rate, .channels = 2}, microphones);
  const std::string farFile = wave("far.wav", {.sampleRate = rate, .channels = 1}, far);
  const auto lastSecond = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--set", "noise.enabled=0", "--set", "beamformer.enabled=0",
                                       "--set", "level.enabled=0", in, path("out.wav")});
    EXPECT_EQ(run(arguments).exitCode, 0);
    const std::vector<float> output = readWave(path("out.wav")).samples;
    double energy = 0.0;
    for (std::size_t n = output.size() - 2 * rate; n < output.size(); n += 2)
      energy += static_cast<double>(output[n]) * output[n];
    return 10.0 * std::log10(energy);
  };
  const double withoutFar = lastSecond({});
  EXPECT_LT(lastSecond({"--far", farFile}), withoutFar - 20.0);
  EXPECT_NEAR(lastSecond({"--far", farFile, "--far-gap", "6:2"}), withoutFar, 1.0);
  EXPECT_NEAR(lastSecond({"--far", farFile, "--muted"}), withoutFar, 0.1);
}

TEST_F(RenderFiles, OneLineSaysWhyNothingRuns) {
  const std::string in =
      wave("in.wav", {.sampleRate = 48000, .channels = 2}, std::vector<float>(960, 0.1F));
  const std::string slow =
      wave("slow.wav", {.sampleRate = 32000, .channels = 2}, std::vector<float>(960, 0.1F));
  const auto effects = [&](std::vector<std::string> arguments) {
    arguments.push_back(path("out.wav"));
    const std::string printed = run(arguments).printed;
    return printed.substr(0, printed.find('\n'));
  };
  EXPECT_EQ(effects({"--class", "efx", in}), "Effects: none: equalizer.enabled is not 1");
  EXPECT_EQ(effects({"--mode", "raw", in}),
            "Effects: none: the raw mode switches the array pipeline off");
  EXPECT_EQ(effects({"--set", "engine.enabled=0", in}), "Effects: none: engine.enabled is 0");
  EXPECT_EQ(effects({slow}), "Effects: none: no effect runs at 32000 Hz");
  EXPECT_EQ(effects({"--set", "pipeline.keep_in_default_mode=0", in}).substr(0, 53),
            "Effects: none: pipeline.keep_in_default_mode is not 1");
}

TEST_F(RenderFiles, EveryErrorIsOneLineAndLeavesNoOutput) {
  const std::string in =
      wave("in.wav", {.sampleRate = 48000, .channels = 1}, std::vector<float>(480, 0.1F));
  const std::string wide =
      wave("wide.wav", {.sampleRate = 48000, .channels = 13}, std::vector<float>(13, 0.1F));
  const std::string bad = text("bad.toml", "echo.enabeld = true\n");
  const std::string notWave = text("not.wav", "hello");
  struct ErrorCase {
    std::vector<std::string> arguments;
    std::string named;
  };
  const std::string out = path("out.wav");
  for (const ErrorCase& error :
       std::vector<ErrorCase>{{{"--class", "sfx", in, out}, "--class sfx"},
                              {{"--mode", "loud", in, out}, "--mode loud"},
                              {{"--block", "0", in, out}, "--block 0"},
                              {{"--block", "-1", in, out}, "--block"},
                              {{"--volume", "2", in, out}, "--volume"},
                              {{"--volume", "1", "--muted", in, out}, "--muted"},
                              {{"--channel-mask", "left", in, out}, "--channel-mask left"},
                              {{"--change", "soon:" + bad, in, out}, "--change soon:"},
                              {{"--change", "1:" + bad, in, out}, "echo.enabled"},
                              {{"--settings", bad, in, out}, "echo.enabled"},
                              {{"--set", "echo.enabled", in, out}, "echo.enabled"},
                              {{"--raw-parameters", bad, in, out}, "5460"},
                              {{"--raw-parameters", path("."), in, out}, path(".")},
                              {{"--settings", path("."), in, out}, path(".")},
                              {{"--far", path("none.wav"), in, out}, "none.wav"},
                              {{"--far", wide, in, out}, "13 channels"},
                              {{"--far-gap", "1:2", in, out}, "--far"},
                              {{"--far", in, "--far-gap", "1", in, out}, "--far-gap 1"},
                              {{wide, out}, "13 channels"},
                              {{notWave, out}, "not.wav"},
                              {{in}, "OUTPUT.wav"},
                              {{in, path(".")}, "name a sound file"},
                              {{in, path("none/out.wav")}, "none"}}) {
    const Outcome outcome = run(error.arguments);
    EXPECT_EQ(outcome.exitCode, 1) << error.named;
    EXPECT_NE(outcome.complained.find(error.named), std::string::npos) << outcome.complained;
    EXPECT_EQ(std::ranges::count(outcome.complained, '\n'), 1) << outcome.complained;
    EXPECT_FALSE(std::filesystem::exists(out));
  }
  // Half an hour of delay, 800 MB of it.
  const Outcome outcome = run({"--set", "pipeline.internal_rate_hz=1", "--tail", in, out});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.complained.find("raise pipeline.internal_rate_hz"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(CallTiming, WarnsOfBlocksThatOutlastTheEnginesPeriod) {
  CallTiming timing;
  for (int n = 0; n < 10; ++n) timing.add(9000.0, true);
  EXPECT_EQ(slownessWarning(timing, 0.01), "");
  for (int n = 0; n < 12; ++n) timing.add(21000.0, true);
  EXPECT_NE(slownessWarning(timing, 0.01).find("took 21.0 ms"), std::string::npos);
  EXPECT_EQ(slownessWarning(timing, 0.03), "");
}

TEST_F(RenderFiles, TimingPrintsItsFigures) {
  const std::string in =
      wave("in.wav", {.sampleRate = 48000, .channels = 2}, softNoise(48000, 2, 9));
  const std::string printed = run({"--timing", in, path("out.wav")}).printed;
  for (const char* part :
       {"100, p50", "completing a block:  15, p50", "% of the period", "CPU: ", "peak memory"})
    EXPECT_NE(printed.find(part), std::string::npos) << printed;
}

}  // namespace
}  // namespace vellumic::tools
