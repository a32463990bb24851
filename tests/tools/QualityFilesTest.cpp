// What vellumic-quality says about sound files that are empty or cut.
#include <cstdlib>

#include "tests/tools/RenderFiles.h"

namespace vellumic::tools {
namespace {

using QualityFiles = RenderFiles;

ToolRun tool(const std::string& arguments) {
  const int status = std::system((QUALITY_TOOL " " + arguments + " >out 2>complaint").c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents("out"), contents("complaint")};
}

TEST_F(QualityFiles, EmptyAndCutOnesAreNamed) {
  const WaveFormat format{.sampleRate = 16000, .channels = 1};
  wave("talk.wav", format, softNoise(16000, 1, 1));
  wave("empty.wav", format, {});
  const std::string scene = "scene noise room --mics 1 ", score = "score room ours=room/mix.wav";
  expectRefusal(tool(scene + "--near empty.wav --far talk.wav"), "empty.wav");
  expectRefusal(tool(scene + "--near talk.wav --far empty.wav"), "empty.wav");
  for (const std::string& sound : {scene + "--near talk.wav --far talk.wav", score})
    ASSERT_EQ(tool(sound).exitCode, 0) << contents("complaint");

  EXPECT_NE(std::system(QUALITY_TOOL " --help >/dev/full 2>&1"), 0);
  expectRefusal(tool("score room ours=empty.wav"), "empty.wav");
  for (const std::string part : {"speech", "noise", "echo", "mix"})
    for (const std::size_t left : {0U, 100U, 200000U}) {
      const std::string file = "room/" + part + ".wav";
      const WaveData whole = readWave(file);
      WaveData cut = whole;
      cut.samples.resize(left);
      writeWave(file, cut);
      expectRefusal(tool(score), left == 0 ? part + ".wav" : ".wav");
      writeWave(file, whole);
    }
}

}  // namespace
}  // namespace vellumic::tools
