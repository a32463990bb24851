#include "tools/host/selftest/SelfTest.h"

#include <winternl.h>

#include <atomic>
#include <cstdio>
#include <filesystem>

#include "control/Handle.h"
#include "tools/OutputFile.h"
#include "tools/ProgramPath.h"
#include "tools/Version.h"
#include "tools/ctl/TextConversion.h"
#include "tools/host/selftest/Supervisor.h"

namespace vellumic::tools {
namespace {

constexpr DWORD stagePatienceMs = 30000;  // without a line from a stage, beside the live sound
constexpr DWORD closingPatience = 4500;   // the system ends a closed console's programs after 5 s

// Ctrl+C, and the console that closes: the test ends early and puts everything back.
class InterruptWatch {
 public:
  explicit InterruptWatch(Supervisor& supervisor)
      : done_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    watched = &supervisor;
    finished = done_.get();
    SetConsoleCtrlHandler(onControl, TRUE);
  }
  ~InterruptWatch() {
    SetEvent(done_.get());
    SetConsoleCtrlHandler(onControl, FALSE);
    watched = nullptr;
  }
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

 private:
  static BOOL WINAPI onControl(DWORD kind) {
    if (Supervisor* const supervisor = watched) supervisor->interrupt();
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT)
      WaitForSingleObject(finished, closingPatience);
    return TRUE;
  }
  static inline std::atomic<Supervisor*> watched = nullptr;
  static inline std::atomic<HANDLE> finished = nullptr;
  KernelHandle done_;
};

std::string systemText() {
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  const auto ask = reinterpret_cast<LONG(WINAPI*)(OSVERSIONINFOW*)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  if (ask != nullptr) ask(&version);
  SYSTEM_INFO system{};
  GetSystemInfo(&system);
  char text[80];
  std::snprintf(text, sizeof text, "%sWindows %lu.%lu.%lu, %lu processors",
                underWine() ? "Wine as " : "", version.dwMajorVersion, version.dwMinorVersion,
                version.dwBuildNumber, system.dwNumberOfProcessors);
  return text;
}

std::wstring commandOf(const std::string& stage, const StageOptions& options) {
  std::wstring command = quotedArgument(programPath().wstring()) + L' ' +
                         quotedArgument(L"--selftest-stage=" + wide(stage)) + L" --seconds " +
                         std::to_wstring(options.seconds);
  if (!options.endpoint.empty())
    command += L' ' + quotedArgument(L"--endpoint=" + wide(options.endpoint));
  return command;
}

// Never over an older report: a number is added.
std::string freeName(const std::string& wanted) {
  const std::filesystem::path path = wanted;
  std::filesystem::path name = path;
  std::error_code ignored;
  for (int number = 2; std::filesystem::is_regular_file(name, ignored); ++number) {
    name = path;
    name.replace_filename(path.stem());
    name += "-" + std::to_string(number);
    name += path.extension();
  }
  return name.string();
}

}  // namespace

bool selfTest(const StageOptions& options, const std::string& wantedFile) {
  const std::string reportFile = freeName(wantedFile);
  ReportFacts facts{.program = versionLine("vellumic-host"),
                    .system = systemText(),
                    .file = reportFile,
                    .finished = false};
  writeWholeFile(reportFile, reportText({}, facts));  // fails before long work, not after it
  std::printf("%s, %s\nAbout %.0f s. The microphone is heard; nothing of it is kept.\n",
              facts.program.c_str(), facts.system.c_str(), options.seconds + 10.0);
  std::fflush(stdout);
  Supervisor supervisor([&](const std::string& stage) { return commandOf(stage, options); },
                        stagePatienceMs + static_cast<DWORD>(1000.0 * options.seconds));
  const InterruptWatch watch(supervisor);
  for (const std::string& stage : stageNames()) supervisor.run(stage);
  supervisor.putBack();
  facts.finished = true;
  writeWholeFile(reportFile, reportText(supervisor.steps(), facts));
  std::fputs(verdictText(supervisor.steps(), facts).c_str(), stdout);
  return !anyFault(supervisor.steps());
}

}  // namespace vellumic::tools
