// What vellumic-render says about a rendering: printed, in tables and on its page.
#include <sys/resource.h>

#include <csignal>

#include "tests/tools/RenderFiles.h"

namespace vellumic::tools {
namespace {

using Reports = RenderFiles;

TEST_F(Reports, ThePageIsSelfContainedAndNamesItsSettings) {
  text("later.toml", "noise.enabled = false");
  wave("far.wav", {}, softNoise(96000, 1, 1));
  wave("a&b<c>.wav", {.channels = 2}, softNoise(96000, 2, 1));
  rendered(
      "--mode speech --far far.wav --set noise.gain.floor1_db=-20 --change 1.5:later.toml "
      "--report page.html --picture picture.svg a&b<c>.wav out.wav");
  const std::string page = contents("page.html");
  for (const char* loaded : {"<script", "<link", "<iframe", "src=", "url(", "@import"})
    EXPECT_EQ(page.find(loaded), std::string::npos) << loaded;
  for (std::size_t n = 0; (n = page.find("href=", n)) != std::string::npos; ++n)
    EXPECT_EQ(page.substr(n + 6, 5), "data:");

  expectParts(page, {"a&amp;b&lt;c&gt;.wav"});
  const std::string settings = page.substr(page.find("<table id=\"settings\">"));
  expectParts(settings, {"<code>noise.gain.floor1</code></td><td>0.1 = -20.0 dB</td>",
                         "<li>1.5 s: <code>noise.enabled</code> = false;</li>"});
  EXPECT_EQ(settings.find("noise.gain.floor2"), std::string::npos);
}

// A peak of no width makes the sound infinite or worse: nothing of the kind reaches the drawing.
TEST_F(Reports, BrokenSoundIsStillDrawn) {
  wave("in.wav", {}, softNoise(960, 1, 1));
  rendered(
      "--class efx --set equalizer.enabled=1 --set equalizer.left.band1.enabled=1 --report "
      "page.html in.wav out.wav --set equalizer.left.band1.q=0 --set equalizer.left.band1.gain=2");
  ASSERT_FALSE(std::isfinite(heard("out.wav")[500]));
  const std::string page = contents("page.html");
  for (std::size_t n = 0; (n = page.find(" d='", n)) != std::string::npos; ++n) {
    const std::string course = page.substr(n, page.find('\'', n + 4) - n);
    EXPECT_EQ(course.find_first_of("nif"), std::string::npos) << course;
  }
}

// A steady tone of -6 dBFS with a tenth of it 40 dB down.
TEST_F(Reports, ASweepTabulatesWhatTheFilesHold) {
  std::vector<float> steady(48000, 0.5F);
  std::fill(steady.begin() + 24000, steady.begin() + 28800, 0.005F);
  wave("in.wav", {.sampleRate = 48000, .channels = 1}, steady);
  const ToolRun sweep = rendered(
      "--class efx --set equalizer.enabled=1 --set equalizer.left.band1.enabled=1 --set "
      "equalizer.left.band1.type=gain --sweep equalizer.left.band1.gain_db=-6,12 in.wav out.wav");
  const std::vector<std::string> lines = split(sweep.printed, '\n');
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_TRUE(lines[0].starts_with("equalizer.left.band1.gain_db "));
  const double inputLevel = 10.0 * std::log10(0.25 * 0.9 + 0.000025 * 0.1);
  for (const std::string& line : {lines[1], lines[2]}) {
    const std::vector<std::string> row = split(line, ' ');
    const double gain = std::stod(row[0]);
    EXPECT_NEAR(std::stod(row[1]), inputLevel + gain, 0.06);
    EXPECT_NEAR(std::stod(row[2]), -46.02 + gain, 0.06);
    EXPECT_EQ(row[3], "-");  // no echo
    EXPECT_NEAR(std::stod(row[6]), -6.02 + gain, 0.06);
    EXPECT_EQ(std::stoi(row[7]), gain > 0.0 ? 48000 - 4800 : 0);
    EXPECT_NEAR(heard("out_" + row[0] + ".wav")[100], 0.5 * std::pow(10.0, gain / 20.0), 1e-4);
  }
  EXPECT_FALSE(std::filesystem::exists("out.wav"));
}

TEST_F(Reports, EveryErrorOfReportsIsOneLineAndLeavesNoOutput) {
  wave("in.wav", {}, softNoise(480, 1, 1));
  text("bad.toml", "echo.enabeld = true\n");
  std::string many = "--sweep noise.gain.floor1=0";
  for (int n = 1; n <= 20; ++n) many += "," + std::to_string(n);
  expectRefused(" in.wav out.wav",
                {{"--sweep noise.gain.floor1", "NAME=A,B,C"},
                 {"--sweep noise.gain.floor1=", "NAME=A,B,C"},
                 {"--sweep noise.gain.floor1=0.1,loud", "--sweep noise.gain.floor1=loud"},
                 {"--sweep noise.gain.floor1=0,1,0", "0 twice"},
                 {"--picture ''", "--picture: is empty"},
                 {"--report out.wav", "is also a sound file"},
                 {"--picture in.wav", "is also a sound file"},
                 {many, "21 values"},
                 {"--compare bad.toml", "echo.enabled"},
                 {"--report none/page.html", "--report"},
                 {"--report ./", "is a folder"},
                 {"--sweep noise.gain.flor1=1", "--sweep noise.gain.flor1"}});
}

// As on a full disk: no file may grow beyond the limit.
TEST_F(Reports, AFullDiskLeavesTheOldPageAndPicture) {
  wave("in.wav", {}, softNoise(100, 1, 1));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  for (const char* option : {"--report", "--picture"}) {
    text("page", "old");
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{.rlim_cur = 4000, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const ToolRun outcome = run(option + std::string(" page in.wav out.wav"));
    setrlimit(RLIMIT_FSIZE, &before);
    expectRefusal(outcome, "page: cannot be written whole");
    EXPECT_TRUE(contents("page") == "old");
    EXPECT_FALSE(std::filesystem::exists("page.part"));
  }
}

}  // namespace
}  // namespace vellumic::tools
