// vellumic-render from command line to output file.
#include <numeric>

#include "parameters/Catalogue.h"
#include "tests/tools/RenderFiles.h"
#include "tools/render/CallTiming.h"

namespace vellumic::tools {
namespace {

TEST_F(RenderFiles, SettingsComeInTheirOrder) {
  RawValues stored{};
  for (const Raw on : {Raw::masterEnable, Raw::equalizerMaster, bandSlot(0, 0, BandField::enable)})
    stored[index(on)] = 1.0F;
  stored[index(bandSlot(0, 0, BandField::gain))] = 0.5F;
  text("raw", std::string(reinterpret_cast<const char*>(stored.data()), sizeof stored));
  text("quarter.toml", "equalizer.left.band1.gain = 0.25");
  wave("in.wav", {}, std::vector<float>(10, 1.0F));
  const std::pair<const char*, float> gains[] = {
      {"", 1.0F},
      {"--raw-parameters raw", 0.5F},
      {"--settings quarter.toml --raw-parameters raw", 0.25F},
      {"--set equalizer.left.band1.gain=0.125 --raw-parameters raw --settings quarter.toml",
       0.125F}};
  for (const auto& [options, gain] : gains) {
    rendered(std::string("--class efx --block 3 in.wav out.wav ") + options);
    EXPECT_EQ(heard("out.wav")[5], gain) << options;
  }
  rendered("--class efx --raw-parameters raw --compare quarter.toml in.wav out.wav");
  EXPECT_EQ(heard("out.wav")[5], 0.5F);
  EXPECT_EQ(heard("out_quarter.wav")[5], 0.25F);
}

TEST_F(RenderFiles, AChangeActsFromItsTimeOnAndAFadeRampsIn) {
  wave("in.wav", {.sampleRate = 48000, .channels = 2}, std::vector<float>(2 * 48000, 1.0F));
  text("half.toml",
       "equalizer = {enabled = true, left.band1 = {enabled = true, type = 0, gain = 0.5}}");
  text("off.toml", "engine = {enabled = false, fade = true}");
  rendered("--class efx --change 0.5:off.toml --change 0.25:half.toml in.wav out.wav");
  const std::vector<float> left = heard("out.wav");
  EXPECT_EQ(left[11999], 1.0F);
  EXPECT_EQ(left[12000], 0.5F);
  EXPECT_EQ(left[24000], 0.5F);
  EXPECT_NEAR(left[24000 + 5000], 0.75F, 1e-6F);  // ramp of 10000 frames
  EXPECT_EQ(left[24000 + 10080], 1.0F);
}

TEST_F(RenderFiles, TellsWhatDoesNotRunAndWhy) {
  for (const int rate : {16000, 32000, 48000})
    wave(std::to_string(rate) + ".wav", {.sampleRate = rate, .channels = 2},
         std::vector<float>(3200, 0.1F));
  text("change.toml", "pipeline.internal_rate_hz = 24000");
  const std::string none = "Effects: none: ", note = "note: ";
  const std::pair<const char*, std::string> cases[] = {
      {"--class efx 48000.wav", none + "equalizer.enabled is not 1\n"},
      {"--mode raw 48000.wav", none + "the raw mode switches the array pipeline off\n"},
      {"--set engine.enabled=0 48000.wav", none + "engine.enabled is 0\n"},
      {"32000.wav", none + "no effect runs at 32000 Hz\n"},
      {"--set pipeline.keep_in_default_mode=0 16000.wav",
       none + "pipeline.keep_in_default_mode is"},
      {"--mode speech --set noise.enabled=0 16000.wav", note + "the speech mode runs noise supp"},
      {"--set echo.enabled=0 --set noise.enabled=0 16000.wav", ""},
      {"--class kdmfx --mode speech --set noise.enabled=0 16000.wav", ""},
      {"--class efx --set equalizer.enabled=1 --set equalizer.right.band2.enabled=1 "
       "--set equalizer.right.band2.type=notch --set equalizer.right.band2.frequency_hz=8001 "
       "16000.wav",
       note + "equalizer.right.band2.frequency_hz of 8001.0 is above half the rate of 16000 Hz"},
      {"--far 16000.wav --change 0.05:change.toml 16000.wav",
       note + "pipeline.internal_rate_hz goes from 16000 to 24000: a running"},
  };
  for (const auto& [words, said] : cases) {
    const ToolRun outcome = rendered(words + std::string(" out.wav"));
    const std::string& where = said.starts_with(none) ? outcome.printed : outcome.complained;
    EXPECT_NE(where.find(said), std::string::npos) << words << where;
    EXPECT_EQ(outcome.complained.find(note) != std::string::npos, said.starts_with(note)) << words;
  }
}

// Where in `output` a stretch of `input` is found.
int lagOf(const std::vector<float>& input, const std::vector<float>& output, int lowest,
          int highest) {
  int best = lowest;
  double largest = -1.0;
  for (int lag = lowest; lag <= highest; ++lag) {
    double sum = 0.0;
    for (std::size_t n = input.size() / 2; n < input.size() / 2 + 4000; ++n)
      sum += double{input[n]} * output[static_cast<std::size_t>(static_cast<int>(n) + lag)];
    if (std::abs(sum) > largest) {
      largest = std::abs(sum);
      best = lag;
    }
  }
  return best;
}

TEST_F(RenderFiles, TheStatedDelayIsTheTrueOneAndAlignRemovesIt) {
  wave("far.wav", {.sampleRate = 48000, .channels = 2}, std::vector<float>(2 * 48000, 0.0F));
  const std::string bare = "--set echo.enabled=0 --set level.enabled=0",
                    far = "--far far.wav --set level.enabled=0";
  const std::pair<int, std::string> cases[] = {
      {16000, bare},
      {44100, bare},
      {96000, bare},
      {48000, "--set echo.enabled=0"},
      {48000, far},
      {16000, far},
      {16000, "--set echo.enabled=0 --set limiter.look_ahead_s=1e30"},
      {48000, "--class kdmfx --mode media"}};
  for (const auto& [rate, options] : cases) {
    SCOPED_TRACE(std::to_string(rate) + " " + options);
    const auto frames = static_cast<std::size_t>(rate);
    const std::vector<float> mono = softNoise(frames, 1, 3);
    wave("in.wav", {.sampleRate = rate, .channels = 2}, softNoise(frames, 2, 3));
    const std::string words =
        options + " --set noise.enabled=0 --set beamformer.enabled=0 in.wav out.wav ";

    const int tolerance = std::max(2, rate / 16000);  // the pipeline counts in internal samples
    const std::string printed = rendered(words + "--tail").printed;
    const int stated = std::stoi(printed.substr(printed.find("Delay: ") + 7));
    std::vector<float> output = heard("out.wav");
    ASSERT_EQ(output.size(), frames + static_cast<std::size_t>(stated));
    EXPECT_NEAR(lagOf(mono, output, stated - 200, stated + 200), stated, tolerance);

    rendered(words + "--align");
    output = heard("out.wav");
    ASSERT_EQ(output.size(), frames);
    EXPECT_NEAR(lagOf(mono, output, -200, 200), 0, tolerance);
  }
}

// With the far file the echo goes; without, muted and in a gap of it (where the microphone is then
// the only one to hear it) it stays.
TEST_F(RenderFiles, TheFarFileIsTheEchoReference) {
  constexpr std::size_t rate = 16000;
  const std::vector<float> far = softNoise(8 * rate, 1, 5);
  std::vector<float> microphones;  // at half of what the loudspeaker played 20 ms before
  for (std::size_t n = 0; n < far.size(); ++n)
    microphones.insert(microphones.end(), 2, n < 320 ? 0.0F : 0.5F * far[n - 320]);
  wave("in.wav", {.sampleRate = rate, .channels = 2}, microphones);
  wave("far.wav", {.sampleRate = rate, .channels = 1}, far);
  text("echo.toml", "noise.enabled = false\nbeamformer.enabled = false\nlevel.enabled = false");
  const auto lastSecond = [&](const std::string& options) {  // dB
    rendered("--settings echo.toml in.wav out.wav " + options);
    const std::vector<float> sound = heard("out.wav");
    return 10.0 *
           std::log10(std::inner_product(sound.end() - rate, sound.end(), sound.end() - rate, 0.0));
  };
  const double withoutFar = lastSecond("");
  EXPECT_LT(lastSecond("--far far.wav"), withoutFar - 20.0);
  EXPECT_NEAR(lastSecond("--far far.wav --far-gap 6:2"), withoutFar, 1.0);
  EXPECT_NEAR(lastSecond("--far far.wav --muted"), withoutFar, 0.1);
}

TEST_F(RenderFiles, EveryErrorIsOneLineAndLeavesNoOutput) {
  wave("in.wav", {.sampleRate = 48000, .channels = 1}, std::vector<float>(480, 0.1F));
  wave("wide.wav", {.sampleRate = 48000, .channels = 13}, std::vector<float>(13, 0.1F));
  text("bad.toml", "echo.enabeld = true\n");
  expectRefused(" in.wav out.wav", {{"--class sfx", "--class sfx"},
                                    {"--block 0", "--block 0"},
                                    {"--volume 2", "--volume"},
                                    {"--channel-mask left", "--channel-mask left"},
                                    {"--settings bad.toml", "echo.enabled"},
                                    {"--raw-parameters bad.toml", "5460"},
                                    {"--raw-parameters .", "."},
                                    {"--far wide.wav", "13 channels"},
                                    {"--far-gap 1:2", "--far"},
                                    {"--far in.wav --far-gap 1", "--far-gap 1"}});
  expectRefused("", {{"wide.wav out.wav", "13 channels"},
                     {"in.wav", "OUTPUT.wav"},
                     {"in.wav none/out.wav", "none"}});
  // Half an hour of delay, 800 MB of it.
  const ToolRun outcome = run("--set pipeline.internal_rate_hz=1 --tail in.wav out.wav");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.complained.find("raise pipeline.internal_rate_hz"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists("out.wav"));
}

TEST_F(RenderFiles, BlocksThatOutlastThePeriodAreWarnedOf) {
  CallTiming timing;
  for (int n = 0; n < 10; ++n) timing.add(9000.0, true);
  EXPECT_EQ(slownessWarning(timing, 0.01), "");
  for (int n = 0; n < 12; ++n) timing.add(21000.0, true);
  EXPECT_NE(slownessWarning(timing, 0.01).find("took 21.0 ms"), std::string::npos);
  EXPECT_EQ(slownessWarning(timing, 0.03), "");
}

}  // namespace
}  // namespace vellumic::tools
