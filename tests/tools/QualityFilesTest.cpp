// What vellumic-quality says about sound files that are empty or cut.
#include <algorithm>
#include <cstdlib>

#include "tests/tools/RenderFiles.h"

namespace vellumic::tools {
namespace {

using QualityFiles = RenderFiles;

TEST_F(QualityFiles, EmptyAndCutOnesAreNamed) {
  const WaveFormat format{.sampleRate = 16000, .channels = 1};
  wave("talk.wav", format, softNoise(16000, 1, 1));
  wave("empty.wav", format, {});
  const auto tool = [](const std::string& arguments) {
    const int status = std::system((QUALITY_TOOL " " + arguments + " >out 2>complaint").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  const auto refuses = [&](const std::string& arguments, const std::string& named) {
    EXPECT_EQ(tool(arguments), 1) << arguments;
    const std::string complaint = contents("complaint");
    EXPECT_NE(complaint.find(named), std::string::npos) << complaint;
    EXPECT_EQ(std::ranges::count(complaint, '\n'), 1) << complaint;
  };
  const std::string scene = "scene noise room --mics 1 ", score = "score room ours=room/mix.wav";
  refuses(scene + "--near empty.wav --far talk.wav", "empty.wav");
  refuses(scene + "--near talk.wav --far empty.wav", "empty.wav");
  ASSERT_EQ(tool(scene + "--near talk.wav --far talk.wav"), 0) << contents("complaint");

  ASSERT_EQ(tool(score), 0) << contents("complaint");
  EXPECT_NE(std::system(QUALITY_TOOL " --help >/dev/full 2>&1"), 0);
  refuses("score room ours=empty.wav", "empty.wav");
  for (const std::string part : {"speech", "noise", "echo", "mix"})
    for (const std::size_t left : {0U, 100U, 200000U}) {
      const std::string file = "room/" + part + ".wav";
      const WaveData whole = readWave(file);
      WaveData cut = whole;
      cut.samples.resize(left);
      writeWave(file, cut);
      refuses(score, left == 0 ? part + ".wav" : ".wav");
      writeWave(file, whole);
    }
}

}  // namespace
}  // namespace vellumic::tools
