// What vellumic-quality says about sound files that are empty or cut.
#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "tests/tools/RenderFiles.h"

namespace vellumic::tools {
namespace {

class QualityFiles : public RenderFiles {
 protected:
  // Exit code of the tool; what it complained about is in complaint().
  int tool(const std::string& arguments) const {
    const std::string command = std::string(QUALITY_TOOL) + " " + arguments + " >" + path("out") +
                                " 2>" + path("complaint");
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string complaint() const { return contents(path("complaint")); }
};

TEST_F(QualityFiles, EmptyAndCutOnesAreNamed) {
  const WaveFormat format{.sampleRate = 16000, .channels = 1};
  const std::string talk = wave("talk.wav", format, softNoise(16000, 1, 1));
  const std::string empty = wave("empty.wav", format, {});
  const std::string room = path("room");
  const auto refuses = [&](const std::string& arguments, const std::string& named) {
    EXPECT_EQ(tool(arguments), 1) << arguments;
    EXPECT_NE(complaint().find(named), std::string::npos) << complaint();
    EXPECT_EQ(std::ranges::count(complaint(), '\n'), 1) << complaint();
  };
  const std::string scene = "scene noise " + room + " --mics 1 ";
  refuses(scene + "--near " + empty + " --far " + talk, "empty.wav");
  refuses(scene + "--near " + talk + " --far " + empty, "empty.wav");
  ASSERT_EQ(tool(scene + "--near " + talk + " --far " + talk), 0) << complaint();

  const std::string score = "score " + room + " ours=" + room + "/mix.wav";
  ASSERT_EQ(tool(score), 0) << complaint();
  EXPECT_NE(std::system(QUALITY_TOOL " --help >/dev/full 2>&1"), 0);
  refuses("score " + room + " ours=" + empty, "empty.wav");
  for (const std::string part : {"speech", "noise", "echo", "mix"})
    for (const std::size_t left : {0U, 100U, 200000U}) {
      const std::string file = "room/" + part + ".wav";
      WaveData sound = readWave(path(file));
      const std::vector<float> whole = sound.samples;
      sound.samples.resize(left);
      writeWave(path(file), sound);
      refuses(score, left == 0 ? part + ".wav" : ".wav");
      sound.samples = whole;
      writeWave(path(file), sound);
    }
}

}  // namespace
}  // namespace vellumic::tools
