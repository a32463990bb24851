// A setting changed under a running vellumic-host, in a process of its own on a live microphone.
// Needs the registered library and the endpoints of scripts/pulse-endpoints with noise in the room.
#include <windows.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "control/Handle.h"
#include "control/Names.h"
#include "tests/apo/ApoWorld.h"
#include "tests/tools/CtlRun.h"
#include "tools/WaveFile.h"

namespace vellumic::tools {
namespace {

KernelHandle startHost(const std::string& arguments) {
  std::string command =
      (test::programFolder() / "vellumic-host.exe").string() + " --service " + arguments;
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION information{};
  EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &startup, &information));
  const KernelHandle thread(information.hThread);
  return KernelHandle(information.hProcess);
}

template <class Condition>
bool within(int milliseconds, Condition condition) {
  for (int waited = 0; waited < milliseconds; waited += 20, Sleep(20))
    if (condition()) return true;
  return false;
}

double rms(const WaveData& wave, double startSeconds, std::size_t channel) {
  const auto channels = static_cast<std::size_t>(wave.format.channels);
  const auto rate = static_cast<std::size_t>(wave.format.sampleRate);
  const auto first = static_cast<std::size_t>(startSeconds * static_cast<double>(rate));
  double sum = 0.0;
  for (std::size_t frame = first; frame < first + rate / 2; ++frame)
    sum += std::pow(double{wave.samples[frame * channels + channel]}, 2.0);
  return std::sqrt(sum / static_cast<double>(rate / 2));
}

TEST(CtlLive, ChangedSettingIsHeardUnderTheHost) {
  constexpr double seconds = 8.0;
  const auto file = std::filesystem::temp_directory_path() / "vellumic-ctl-live.wav";
  const KernelHandle host = startHost(
      "--endpoint array4 --class efx --settings settings/factory.toml --live 8 " + file.string());
  // Asking too early would make a board of our own, and the host is to make it.
  ASSERT_TRUE(within(20000, [] {
    return static_cast<bool>(
        KernelHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, sharedMemoryName)));
  }));
  ASSERT_TRUE(within(10000, [] {
    return captured({"status", "--json"}).printed.find("\"alive\": true") != std::string::npos;
  }));
  Sleep(4000);
  const auto outcome =
      captured({"settings", "set", "equalizer.enabled=true", "equalizer.left.band1.enabled=true",
                "equalizer.left.band1.type=gain", "equalizer.left.band1.gain=0.1"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.complained;
  expectParts(outcome.printed, {"Told 1 running effect to read it."});
  ASSERT_EQ(WaitForSingleObject(host.get(), 40000), WAIT_OBJECT_0);
  DWORD code = 1;
  GetExitCodeProcess(host.get(), &code);
  EXPECT_EQ(code, 0U);

  const WaveData wave = readWave(file.string());
  std::filesystem::remove(file);
  const double before = rms(wave, 0.5, 0), after = rms(wave, seconds - 0.6, 0);
  RecordProperty("level_ratio", std::to_string(after / before));
  EXPECT_GT(before, 0.0);
  EXPECT_NEAR(after / before, 0.1, 0.01);
  EXPECT_NEAR(rms(wave, seconds - 0.6, 1) / rms(wave, 0.5, 1), 1.0, 0.1);  // the right side
}

}  // namespace
}  // namespace vellumic::tools
