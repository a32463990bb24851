// vellumic-host --selftest: what it says of what it saw, stages that go wrong, and a whole run.
#include <windows.h>

#include <gtest/gtest.h>
#include <shellapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "control/Handle.h"
#include "tests/control/ChildProcess.h"
#include "tools/ProgramPath.h"
#include "tools/ctl/TextConversion.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/StageLog.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/Supervisor.h"

namespace vellumic::tools {
namespace {

constexpr auto ok = Verdict::ok, notOk = Verdict::notOk, unknown = Verdict::unknown;
constexpr auto code(DWORD value) { return static_cast<HRESULT>(value); }

// Every line that says "not ok", its neighbours that do not, and what the person is told to do.
TEST(SelfTest, SaysOkNotOkAndUntoldOfTheSameFacts) {
  const struct {
    Outcome outcome;
    Verdict verdict;
    const char* part;
  } cases[] = {
      {judgeFormats(118, ""), ok, "118 answers"},
      {judgeFormats(118, "accepts plain 3"), notOk, "plain 3; send"},
      {judgeGain(6.09, 6.0), ok, "6.09 dB"},
      {judgeGain(5.8, 6.0), notOk, "5.80 dB instead of 6.00"},
      {judgeGain(NAN, 6.0), notOk, "instead of 6.00 dB; send"},
      {judgeEffects(true, "a, b", "a"), ok, "from a, b to a"},
      {judgeEffects(true, "a", "a"), notOk, "a as before; send"},
      {judgeEffects(false, "a", "b"), notOk, "not signalled; send"},
      {judgeEcho(10.5, true), ok, "10.50 dB less"},
      {judgeEcho(9.5, true), notOk, "9.50 dB less"},
      {judgeEcho(9.5, false), unknown, "this machine's settings"},
      {judgeSound({.peakIn = 0.1F, .peakOut = 0.01F}), ok, "-20.0 dB in, -40.0 dB out"},
      {judgeSound({.peakIn = 0.0F}), unknown, "silence; speak"},
      {judgeSound({.failedPeriods = 2, .peakIn = 0.1F}), notOk, "2 periods not processed"},
      {judgeSound({.finite = false, .peakIn = 0.1F}), notOk, "no numbers"},
      {judgeOwnTime(9999.0, 10000.0), ok, "9999 us of 10000"},
      {judgeOwnTime(10001.0, 10000.0), notOk, "lower pipeline.block_size"},
      {judgeOwnTime({}, 10000.0), unknown, "does not count"},
      {judgeUnload(true, S_FALSE, true), ok, "goes with its last"},
      {judgeUnload(true, S_FALSE, false), notOk, "stays loaded"},
      {judgeUnload(true, S_OK, true), notOk, "while its objects live"},
      {judgeUnload(false, E_FAIL, true), notOk, "register ours"},
      {judgeNotification(true), ok, ""},
      {judgeNotification(false), notOk, "no call came"},
      {judgeUnregister(true, true), ok, ""},
      {judgeUnregister(true, false), notOk, "OnNotify still runs"},
      {judgeUnregister(false, true), unknown, "no call was running"},
      {judgeLoopback(3, "3 packets"), ok, "3 packets"},
      {judgeLoopback(0, ""), notOk, "none came"},
      {judgeService(ServiceState::running), ok, ""},
      {judgeService(ServiceState::stopped), notOk, "net start Audiosrv"},
      {judgeService(ServiceState::changing), notOk, "net start Audiosrv"},
      {judgeService(ServiceState::missing), unknown, "does not exist"},
      {judgeSignature(0), ok, "trusted"},
      {judgeSignature(TRUST_E_NOSIGNATURE), ok, "no signature"},
      {judgeSignature(CERT_E_UNTRUSTEDROOT), ok, "not trusted here"},
      {judgeSignature(TRUST_E_BAD_DIGEST), notOk, "unpack it anew"},
      {judgeSignature(CERT_E_REVOKED), notOk, "0x800B010C); send"},
      {judgeClosedKey(ERROR_ACCESS_DENIED, 0), ok, "past its permissions"},
      {judgeClosedKey(ERROR_ACCESS_DENIED, 5), notOk, "error 5"},
      {judgeClosedKey(0, 0), unknown, "not closed"},
      {explained(E_ACCESSDENIED, "x"), notOk, "x: no rights; run as administrator"},
      {explained(code(0x80070490), "x"), unknown, "no such device; connect one"},
      {explained(code(0x88890010), "x"), notOk, "service is not reachable; run net start"},
      {explained(code(0x800706BA), "x"), notOk, "service is not reachable; run net start"},
      {explained(code(0x88890004), "x"), notOk, "went away"},
      {explained(code(0x8889000A), ""), notOk, "another program holds"},
      {explained(E_NOTIMPL, "x"), unknown, "does not have it"},
      {explained(REGDB_E_CLASSNOTREG, "x; y"), notOk, "x: not registered"},
      {explained(E_FAIL, "x"), notOk, "x: failed (0x80004005); send the report"},
  };
  for (const auto& [outcome, verdict, part] : cases) {
    EXPECT_EQ(outcome.verdict, verdict) << outcome.text;
    EXPECT_NE(outcome.text.find(part), std::string::npos) << part << " in: " << outcome.text;
  }
}

TEST(SelfTest, TheVerdictIsTenLinesThatNameTheFirstFault) {
  std::vector<Step> steps;
  for (const std::string& stage : stageNames())
    steps.push_back({.stage = stage, .name = "step", .outcome = good()});
  const ReportFacts facts{"host 1", "Windows 10", "file.json"};
  const auto lines = [&] {
    std::istringstream text(verdictText(steps, facts));
    std::vector<std::string> all;
    for (std::string line; std::getline(text, line);) all.push_back(line);
    return all;
  };
  EXPECT_EQ(lines().size(), 10U);
  EXPECT_FALSE(anyFault(steps));
  for (const bool finished : {false, true})  // a run ended by force leaves no healthy report
    EXPECT_EQ(reportText(steps, {"host 1", "Windows 10", "file.json", finished})
                      .find("\"healthy\": true") != std::string::npos,
              finished);
  EXPECT_NE(lines()[8].find("Verdict: ok, 0 of 10"), std::string::npos) << lines()[8];
  EXPECT_NE(lines()[9].find("file.json"), std::string::npos);

  steps.push_back({.stage = "live", .name = "microphone", .outcome = untold("no microphone")});
  EXPECT_NE(lines()[3].find("ok "), std::string::npos);
  EXPECT_NE(lines()[3].find("cannot be told here: microphone: no micro"), std::string::npos);
  steps.push_back({.stage = "live", .name = "one", .outcome = bad("\"broken\"; mend it", E_FAIL)});
  steps.push_back({.stage = "live", .name = "two", .outcome = bad(std::string(500, 'x'))});
  EXPECT_TRUE(anyFault(steps));
  EXPECT_EQ(lines().size(), 10U);
  EXPECT_NE(lines()[3].find("not ok"), std::string::npos);
  EXPECT_NE(lines()[3].find("one: \"broken\"; mend it (first of 2)"), std::string::npos);
  EXPECT_NE(lines()[8].find("Verdict: not ok, 2 of 13 steps not ok, 1 cannot"), std::string::npos);
  // A long text loses its middle, never what to do, and never half a character.
  std::string longName;
  for (int i = 0; i < 100; ++i) longName += "\xC3\xA4";
  steps.push_back({.stage = "volume", .name = "x" + longName, .outcome = bad("y; run it anew")});
  EXPECT_NE(lines()[4].find("\xC3\xA4...; run it anew"), std::string::npos) << lines()[4];
  EXPECT_EQ(utf8(wide(lines()[4])), lines()[4]);
  steps.pop_back();
  EXPECT_NE(
      reportText(steps, facts)
          .find(R"("step": "one", "verdict": "not ok", "hresult": "0x80004005", "ms": 0.000, )"
                R"("text": "\"broken\"; mend it")"),
      std::string::npos)
      << reportText(steps, facts);
}

TEST(SelfTest, ArgumentsComeThroughACommandLine) {
  for (const wchar_t* const text : {L"", L"a\\", L"a\"b", L"a\\\"", L"-x", L"a b\\\\"}) {
    int count = 0;
    LPWSTR* const parts =
        CommandLineToArgvW((L"program " + quotedArgument(text) + L" end").c_str(), &count);
    ASSERT_EQ(count, 3) << utf8(text);
    EXPECT_EQ(std::wstring(parts[1]), text);
    LocalFree(parts);
  }
}

// Stages of the test's own, run in processes of this program.
int stage(const std::function<void(StageLog&)>& body) {
  StageLog log;
  body(log);
  return 0;
}
const test::ChildMode stages[] = {
    {"fine", [] { return stage([](StageLog& log) { log.tell("a\tb", good("c\nd")); }); }},
    {"throws",
     [] {
       return stage([](StageLog& log) {
         log.attempt("com", []() -> Outcome { throw ComError(E_ACCESSDENIED, "opening"); });
         log.excuse("an excuse");
         log.attempt("other", []() -> Outcome { throw std::runtime_error("why"); });
       });
     }},
    {"crashes",
     [] {
       return stage([](StageLog& log) {
         log.willChange("undo");
         log.willChange("undone already");
         log.changedBack("undone already");
         log.attempt("falls", []() -> Outcome {
           SetErrorMode(SEM_NOGPFAULTERRORBOX);
           TerminateProcess(GetCurrentProcess(), 0xC0000005);
           return good();
         });
       });
     }},
    {"hangs",
     [] {
       return stage([](StageLog& log) {
         log.attempt("waits", [] {
           Sleep(20000);
           return good();
         });
       });
     }},
    {"babbles",
     [] {
       std::puts("step\tx");
       std::puts("step\ty\t7\t0\t0\ttext");
       std::puts("terminate called at C:\\Users\\Jane Doe\\x \xFF");
       return 3;
     }},
    {"leaves",
     [] {
       return stage([](StageLog& log) {
         log.willChange("undo");
         log.tell("left", good());
       });
     }},
    {"chatters",
     [] {
       for (const ULONGLONG end = GetTickCount64() + 20000; GetTickCount64() < end;)
         std::puts("and on");
       return 0;
     }},
    {"spoils", [] { return stage([](StageLog& log) { log.willChange("babbles"); }); }},
    {"undo", [] { return stage([](StageLog& log) { log.tell("undone", good()); }); }},
};

Supervisor supervisor(DWORD patienceMs = 10000) {
  return {[](const std::string& name) {
            return L'"' + programPath().wstring() + L"\" --child " + wide(name);
          },
          patienceMs};
}

void expectSteps(const Supervisor& supervisor, std::vector<std::array<std::string, 3>> wanted) {
  ASSERT_EQ(supervisor.steps().size(), wanted.size());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const Step& step = supervisor.steps()[i];
    EXPECT_EQ(step.stage, wanted[i][0]);
    EXPECT_EQ(step.name, wanted[i][1]);
    EXPECT_NE(step.outcome.text.find(wanted[i][2]), std::string::npos) << step.outcome.text;
  }
}

TEST(SelfTest, AStageThatFailsStopsNoOtherAndIsUndone) {
  Supervisor test = supervisor();
  for (const char* name : {"crashes", "throws", "babbles", "spoils", "leaves", "fine"})
    test.run(name);
  test.putBack();
  expectSteps(test,
              {{"crashes", "crashes", "ended with 0xC0000005 in falls; send the report"},
               {"put-back", "undone", ""},
               {"throws", "com", "opening: no rights; run as administrator"},
               {"throws", "other", "an excuse: why"},
               {"babbles", "babbles",
                "saying: terminate called at C:\\Users\\...\\x \xEF\xBF\xBD; send the report"},
               {"leaves", "left", ""},
               {"fine", "a?b", "c?d"},
               {"put-back", "undone", ""},
               {"put-back", "babbles", "x \xEF\xBF\xBD; run the self-test once more"}});
  EXPECT_EQ(test.steps()[2].outcome.result, E_ACCESSDENIED);
  EXPECT_EQ(test.steps()[3].outcome.verdict, unknown);
}

TEST(SelfTest, AStageThatHangsOrIsInterruptedIsEnded) {
  Supervisor hanging = supervisor(500);
  hanging.run("hangs");
  expectSteps(hanging, {{"hangs", "hangs", "answers no more in "}});
  for (const char* stage : {"hangs", "chatters"}) {
    Supervisor stopped = supervisor();
    std::thread user([&] {
      Sleep(300);
      stopped.interrupt();
    });
    stopped.run(stage);
    stopped.run("fine");
    user.join();
    stopped.putBack();
    expectSteps(stopped, {{stage, stage, "interrupted in "}});
  }
  Supervisor between = supervisor();
  between.interrupt();
  for (const char* name : {"fine", "leaves"}) between.run(name);
  between.putBack();
  expectSteps(between, {{"fine", "fine", "interrupted; run again"}});
}

// The program itself, whole, on the machine of the test.
class SelfTestRun : public testing::Test {
 protected:
  ~SelfTestRun() override { std::filesystem::remove_all(folder); }
  void SetUp() override {
    std::filesystem::create_directories(folder);
    std::ofstream(older) << "older";
  }

  KernelHandle start(const std::string& arguments) {
    std::wstring command = L'"' + (programFolder() / L"vellumic-host.exe").wstring() +
                           L"\" --selftest --endpoint " + wide(arguments) + L' ' + older.wstring();
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const KernelHandle file(CreateFileW(printed.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                                        CREATE_ALWAYS, 0, nullptr));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = file.get();
    PROCESS_INFORMATION information{};
    EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &information));
    CloseHandle(information.hThread);
    processId = information.dwProcessId;
    return KernelHandle(information.hProcess);
  }
  static DWORD wait(const KernelHandle& process) {
    DWORD exitCode = STILL_ACTIVE;
    WaitForSingleObject(process.get(), 90000);
    GetExitCodeProcess(process.get(), &exitCode);
    return exitCode;
  }
  static std::string contentOf(const std::filesystem::path& file) {
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
  // What a run might leave: the class registered, settings of its own, a key to try on, another
  // active setting.
  struct Traces {
    bool registered, stored, key;
    std::wstring active;
    bool operator==(const Traces&) const = default;
  };
  static Traces traces() {
    const auto exists = [](const std::wstring& path) {
      RegistryKey key;
      return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) !=
             ERROR_FILE_NOT_FOUND;
    };
    std::array<wchar_t, 400> active{};
    DWORD size = sizeof active;
    RegGetValueW(HKEY_LOCAL_MACHINE, settings.c_str(), L"ActiveSetting", RRF_RT_REG_SZ, nullptr,
                 active.data(), &size);
    return {exists(L"SOFTWARE\\Classes\\CLSID\\{577F6409-47DB-42FF-B8EA-09DCF969B687}"),
            exists(settings + L"\\vellumic-host"), exists(L"SOFTWARE\\Vellumic-selftest"),
            active.data()};
  }

  static inline const std::wstring tree = L"SOFTWARE\\Mirandor\\Vellumic\\Parameters",
                                   settings =
                                       tree + L"\\{DFF21CE1-F70F-11D0-B917-00A0C9223196}\\Settings";
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() /
      ("vellumic-selftest-" + std::to_string(GetCurrentProcessId()));
  const std::filesystem::path older = folder / "report.json", report = folder / "report-2.json",
                              printed = folder / "printed.txt";
  DWORD processId = 0;
};

TEST_F(SelfTestRun, WholeRunIsInOrderAndLeavesNothing) {
  const auto before = traces();
  EXPECT_EQ(wait(start("array4 --seconds 1")), 0U) << contentOf(printed) << contentOf(report);
  const std::string text = contentOf(report), console = contentOf(printed);
  EXPECT_EQ(std::ranges::count(console, '\n'), 12) << console;
  EXPECT_EQ(text.find("\"not ok\""), std::string::npos) << text;
  for (const std::string& stage : stageNames())
    EXPECT_NE(text.find("\"stage\": \"" + stage + "\""), std::string::npos) << stage;
  EXPECT_NE(text.find("\"doctor: attached\""), std::string::npos);
  // What must have been told even here, where much cannot be.
  for (const char* step :
       {"efx created", "kdmfx locked and run", "mfx in mode speech", "equaliser raises 1 kHz",
        "follows a reload", "effects change", "cancels an echo", "mfx on the microphone",
        "effects on the status board", "calls, by the clock", "round 3"}) {
    const std::size_t at = text.find(step);
    ASSERT_NE(at, std::string::npos) << step;
    const std::string line = text.substr(at, text.find('\n', at) - at);
    EXPECT_NE(line.find("\"verdict\": \"ok\""), std::string::npos) << line;
  }
  EXPECT_EQ(contentOf(older), "older");
  EXPECT_EQ(traces(), before);
}

// Without a microphone; the stage that has just stored its settings is killed, the others still
// run.
TEST_F(SelfTestRun, WhatAKilledStageLeavesIsPutBack) {
  const std::wstring active(300, L'5');
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, settings.c_str(), L"ActiveSetting", REG_SZ, active.c_str(),
                  602);
  const auto before = traces();
  constexpr UINT killed = 42;
  const KernelHandle process = start("nobody");
  const auto kill = [&](DWORD parent) {
    const KernelHandle list(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(list.get(), &entry); more;
         more = Process32NextW(list.get(), &entry))
      if (entry.th32ParentProcessID == parent) {
        const KernelHandle child(OpenProcess(PROCESS_TERMINATE, FALSE, entry.th32ProcessID));
        if (child && TerminateProcess(child.get(), killed)) return true;
      }
    return false;
  };
  while (traces().active == active && WaitForSingleObject(process.get(), 1) == WAIT_TIMEOUT) {
  }
  while (!kill(processId) && WaitForSingleObject(process.get(), 1) == WAIT_TIMEOUT) {
  }
  EXPECT_EQ(wait(process), 1U);
  const std::string text = contentOf(report);
  for (const char* part : {"ended with 0x0000002A in ", "settings put back", "round 3",
                           "no microphone; connect one", "nobody: not found; there are: "})
    EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
  EXPECT_EQ(traces(), before);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, tree.c_str());
}

}  // namespace
}  // namespace vellumic::tools
