// What vellumic-render says about a rendering: printed, in tables and on its page.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <iostream>
#include <sstream>

#include "tests/tools/RenderFiles.h"

namespace vellumic::tools {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Every element is closed in its order, and no bare & or < stands in text or attributes.
testing::AssertionResult wellFormed(const std::string& page) {
  std::vector<std::string> open;
  for (std::size_t n = 0; n < page.size(); ++n) {
    if (page[n] == '&' && page.find(';', n) > n + 6)
      return testing::AssertionFailure() << "bare & at " << page.substr(n, 40);
    if (page[n] != '<') continue;
    const std::size_t end = page.find_first_of("<>", n + 1);
    if (end == std::string::npos || page[end] == '<')
      return testing::AssertionFailure() << "bare < at " << page.substr(n, 40);
    const std::string tag = page.substr(n + 1, end - n - 1);
    const std::string name = tag.substr(0, tag.find_first_of(" \n/", 1));
    if (tag.front() == '/') {
      if (open.empty() || "/" + open.back() != tag)
        return testing::AssertionFailure() << "<" << tag << "> closes another element";
      open.pop_back();
    } else if (tag.front() != '!' && tag.back() != '/') {
      open.push_back(name);
    }
    n = end;
  }
  if (!open.empty()) return testing::AssertionFailure() << "<" << open.back() << "> stays open";
  return testing::AssertionSuccess();
}

// The first block of a printed table, by white space; row 0 is the head.
std::vector<std::vector<std::string>> tableIn(const std::string& printed) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(printed);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    rows.emplace_back(std::istream_iterator<std::string>(words),
                      std::istream_iterator<std::string>());
  }
  return rows;
}

class Reports : public RenderFiles {
 protected:
  static Outcome rendered(const std::vector<std::string>& arguments) {
    Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.complained;
    return outcome;
  }
  std::string noise(const std::string& name, int rate, int channels, std::size_t frames) const {
    return wave(name, {.sampleRate = rate, .channels = channels},
                softNoise(frames, static_cast<std::size_t>(channels), 1));
  }
};

TEST_F(Reports, ThePageIsSelfContainedAndSaysWhatIsPrinted) {
  const std::string later = text("later.toml", "noise.enabled = false");
  const Outcome outcome = rendered({"--mode", "speech", "--far", noise("far.wav", 48000, 1, 96000),
                                    "--set", "noise.gain.floor1_db=-20", "--change", "1.5:" + later,
                                    "--report", path("page.html"), "--picture", path("picture.svg"),
                                    noise("a&b <c>.wav", 48000, 2, 96000), path("out.wav")});
  const std::string page = contentOf(path("page.html"));
  EXPECT_TRUE(wellFormed(page));
  EXPECT_TRUE(wellFormed(contentOf(path("picture.svg"))));
  EXPECT_NE(page.find("a&amp;b &lt;c&gt;.wav"), std::string::npos);

  std::istringstream lines(outcome.printed);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const std::string value = line.substr(line.find_first_not_of(' ', line.find(':') + 1));
    EXPECT_TRUE(value.find_first_of("<>&") != std::string::npos ||
                page.find("</th><td>" + value + "</td>") != std::string::npos)
        << value;
  }
  EXPECT_GE(count, 9) << outcome.printed;

  for (const char* loaded : {"<script", "<link", "<iframe", "src=", "url(", "@import"})
    EXPECT_EQ(page.find(loaded), std::string::npos) << loaded;
  for (std::size_t n = 0; (n = page.find("href=", n)) != std::string::npos; ++n)
    EXPECT_EQ(page.substr(n + 6, 5), "data:");

  const std::string settings = page.substr(page.find("<table id=\"settings\">"));
  EXPECT_NE(settings.find("<code>noise.gain.floor1</code></td><td>0.1 = -20.0 dB</td>"),
            std::string::npos);
  EXPECT_EQ(settings.find("noise.gain.floor2"), std::string::npos);
  EXPECT_NE(settings.find("<li>1.5 s: <code>noise.enabled</code> = false;</li>"),
            std::string::npos);
}

// A peak of no width makes the sound infinite or worse; nothing of the kind reaches the drawing.
TEST_F(Reports, BrokenSoundIsStillDrawn) {
  rendered({"--class", "efx", "--set", "equalizer.enabled=1", "--set",
            "equalizer.left.band1.enabled=1", "--set", "equalizer.left.band1.gain=2", "--set",
            "equalizer.left.band1.q=0", "--report", path("page.html"),
            noise("in.wav", 48000, 1, 960), path("out.wav")});
  ASSERT_FALSE(std::isfinite(readWave(path("out.wav")).samples[500]));
  const std::string page = contentOf(path("page.html"));
  EXPECT_TRUE(wellFormed(page));
  for (std::size_t n = 0; (n = page.find(" d='", n)) != std::string::npos; ++n) {
    const std::string course = page.substr(n, page.find('\'', n + 4) - n);
    EXPECT_EQ(course.find_first_of("nif"), std::string::npos) << course;
  }
}

TEST_F(Reports, TheDrawnResponseIsTheEqualisersGain) {
  rendered({"--class", "efx", "--set", "equalizer.enabled=1", "--set",
            "equalizer.left.band1.enabled=1", "--set", "equalizer.left.band1.type=gain", "--set",
            "equalizer.left.band1.gain_db=-10", "--report", path("page.html"),
            noise("in.wav", 48000, 1, 960), path("out.wav")});
  std::string page = contentOf(path("page.html"));
  page = page.substr(page.find("Response of the equaliser"));
  const std::size_t begin = page.find("d='") + 3;
  std::string course = page.substr(begin, page.find('\'', begin) - begin);
  for (char& c : course)
    if (c == 'M' || c == 'L') c = ' ';
  std::istringstream numbers(course);
  int points = 0;
  for (double x = 0.0, y = 0.0; numbers >> x >> y; ++points)
    ASSERT_NEAR(y / 130.0, 0.75, 0.001);  // of the panel from +20 down to -20 dB
  EXPECT_GT(points, 400);
}

// A steady tone of -6 dBFS with a tenth of it 40 dB down.
TEST_F(Reports, ASweepTabulatesWhatTheFilesHold) {
  std::vector<float> steady(48000, 0.5F);
  std::fill(steady.begin() + 24000, steady.begin() + 28800, 0.005F);
  const Outcome outcome = rendered(
      {"--class", "efx", "--set", "equalizer.enabled=1", "--set", "equalizer.left.band1.enabled=1",
       "--set", "equalizer.left.band1.type=gain", "--sweep", "equalizer.left.band1.gain_db=-6,12",
       wave("in.wav", {.sampleRate = 48000, .channels = 1}, steady), path("out.wav")});
  const auto rows = tableIn(outcome.printed);
  ASSERT_EQ(rows.size(), 3U) << outcome.printed;
  EXPECT_EQ(rows[0][0], "equalizer.left.band1.gain_db");
  const double inputLevel = 10.0 * std::log10(0.25 * 0.9 + 0.000025 * 0.1);
  for (const auto& row : {rows[1], rows[2]}) {
    const double gain = std::stod(row[0]);
    EXPECT_NEAR(std::stod(row[1]), inputLevel + gain, 0.06);
    EXPECT_NEAR(std::stod(row[2]), -46.02 + gain, 0.06);
    EXPECT_EQ(row[3], "-");  // no echo
    EXPECT_NEAR(std::stod(row[6]), -6.02 + gain, 0.06);
    EXPECT_EQ(std::stoi(row[7]), gain > 0.0 ? 48000 - 4800 : 0);
    const float sample = readWave(path("out_" + row[0] + ".wav")).samples[100];
    EXPECT_NEAR(sample, 0.5 * std::pow(10.0, gain / 20.0), 1e-4);
  }
  EXPECT_FALSE(std::filesystem::exists(path("out.wav")));
}

// The loudspeakers reach the microphones 20 ms late; the other setting does not cancel them.
TEST_F(Reports, AComparisonShowsBothSettingsAndWhatTheyDiffer) {
  constexpr std::size_t rate = 16000, seconds = 9;
  const std::vector<float> far = softNoise(seconds * rate, 1, 5);
  std::vector<float> microphones;
  for (std::size_t n = 0; n < far.size(); ++n)
    microphones.insert(microphones.end(), 2, n < 320 ? 0.0F : 0.5F * far[n - 320]);
  const std::string given = text("given.toml", "level.enabled = false");
  const std::string other = text("bare.toml", "echo.enabled = false\nlevel.enabled = false");
  const Outcome outcome =
      rendered({"--settings", given, "--compare", other, "--set", "noise.enabled=0", "--set",
                "beamformer.enabled=0", "--report", path("page.html"), "--far",
                wave("far.wav", {.sampleRate = rate, .channels = 1}, far),
                wave("in.wav", {.sampleRate = rate, .channels = 2}, microphones), path("out.wav")});
  const auto table = tableIn(outcome.printed.substr(outcome.printed.find("\nsettings") + 1));
  ASSERT_EQ(table.size(), 3U) << outcome.printed;
  EXPECT_EQ(table[1][0], "given");
  EXPECT_GT(std::stod(table[1][3]), 20.0);
  EXPECT_EQ(table[2][0], "bare");
  EXPECT_EQ(table[2][3], "-");
  EXPECT_LT(std::stod(table[1][1]), std::stod(table[2][1]) - 10.0);
  EXPECT_TRUE(std::filesystem::exists(path("out_bare.wav")));

  const std::string page = contentOf(path("page.html"));
  EXPECT_TRUE(wellFormed(page));
  EXPECT_NE(page.find("<tr><th></th><th>given</th><th>bare</th></tr>"), std::string::npos);
  EXPECT_NE(page.find("<tr><th>bare</th><td class=\"number\">" + table[2][1] + "</td>"),
            std::string::npos);
  EXPECT_NE(page.find("<code>echo.enabled</code></td><td>true</td><td>false</td><td>true</td>"),
            std::string::npos);
}

TEST_F(Reports, TheStatedGainIsTheOneHeard) {
  constexpr std::size_t rate = 16000;
  std::vector<float> tone;
  for (std::size_t n = 0; n < 8 * rate; ++n)
    tone.insert(tone.end(), 2, 0.05F * std::sin(0.4F * static_cast<float>(n % 31416)));
  const Outcome outcome = rendered(
      {"--set", "echo.enabled=0", "--set", "noise.enabled=0", "--set", "beamformer.enabled=0",
       wave("in.wav", {.sampleRate = rate, .channels = 2}, tone), path("out.wav")});
  const std::vector<float> output = readWave(path("out.wav")).samples;
  double energy = 0.0;
  for (std::size_t n = output.size() - rate; n < output.size(); n += 2)
    energy += static_cast<double>(output[n]) * static_cast<double>(output[n]);
  const double heard = 10.0 * std::log10(energy / (0.5 * rate) / (0.5 * 0.05 * 0.05));
  const std::size_t line = outcome.printed.find("Gain control: ");
  ASSERT_NE(line, std::string::npos) << outcome.printed;
  EXPECT_GT(heard, 5.0);
  EXPECT_NEAR(std::stod(outcome.printed.substr(line + 14)), heard, 0.3);
}

TEST_F(Reports, EveryErrorOfReportsIsOneLineAndLeavesNoOutput) {
  const std::string in = noise("in.wav", 48000, 1, 480);
  const std::string bad = text("bad.toml", "echo.enabeld = true\n"), out = path("out.wav");
  std::string many = "noise.gain.floor1=0";
  for (int n = 1; n <= 20; ++n) many += "," + std::to_string(n);
  struct ErrorCase {
    std::vector<std::string> arguments;
    std::string named;
  };
  for (const ErrorCase& error : std::vector<ErrorCase>{
           {{"--sweep", "noise.gain.floor1"}, "NAME=A,B,C"},
           {{"--sweep", "noise.gain.floor1=0.1,loud"}, "--sweep noise.gain.floor1=loud"},
           {{"--sweep", "noise.gain.floor1=0,1,0"}, "0 twice"},
           {{"--sweep", "noise.gain.floor1=0,"}, "NAME=A,B,C"},
           {{"--sweep", ""}, "--sweep: is empty"},
           {{"--picture", ""}, "--picture: is empty"},
           {{"--report", out}, "is also a sound file"},
           {{"--picture", in}, "is also a sound file"},
           {{"--sweep", many}, "21 values"},
           {{"--compare", bad}, "echo.enabled"},
           {{"--compare", bad, "--sweep", "noise.gain.floor1=0"}, "--sweep"},
           {{"--report", path("none/page.html")}, "--report"},
           {{"--report", path("")}, "is a folder"},
           {{"--sweep", "noise.gain.flor1=1"}, "--sweep noise.gain.flor1"},
           {{"--picture", path("none/picture.svg")}, "--picture"}}) {
    std::vector<std::string> arguments = error.arguments;
    arguments.insert(arguments.end(), {in, out});
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 1) << error.named;
    EXPECT_NE(outcome.complained.find(error.named), std::string::npos) << outcome.complained;
    EXPECT_EQ(std::ranges::count(outcome.complained, '\n'), 1) << outcome.complained;
    EXPECT_FALSE(std::filesystem::exists(out));
  }
}

// As on a full disk: no file may grow beyond the limit.
TEST_F(Reports, AFullDiskLeavesTheOldPageAndPicture) {
  const std::string in = noise("in.wav", 16000, 1, 100);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  for (const char* option : {"--report", "--picture"}) {
    const std::string page = text("page", "old");
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{.rlim_cur = 4000, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const Outcome outcome = run({option, page, in, path("out.wav")});
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.complained.find("page: cannot be written whole"), std::string::npos);
    EXPECT_TRUE(contentOf(page) == "old");
    EXPECT_FALSE(std::filesystem::exists(page + ".part"));
  }
}

TEST_F(Reports, AFullStandardOutputIsAnError) {
  std::fflush(stdout);
  const int kept = dup(1), full = open("/dev/full", O_WRONLY);
  dup2(full, 1);
  const char* help[] = {"vellumic-render", "--help"};
  testing::internal::CaptureStderr();
  const int exitCode = renderMain(2, help);
  const std::string complained = testing::internal::GetCapturedStderr();
  dup2(kept, 1);
  std::clearerr(stdout);
  std::cout.clear();
  close(kept);
  close(full);
  EXPECT_EQ(exitCode, 1);
  EXPECT_NE(complained.find("standard output"), std::string::npos) << complained;
}

}  // namespace
}  // namespace vellumic::tools
