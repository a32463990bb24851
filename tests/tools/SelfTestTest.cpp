// vellumic-host --selftest: what it says of what it saw, stages that go wrong, and a whole run.
#include <array>
#include <cmath>
#include <cstdio>
#include <thread>
#include <tuple>

#include "control/RegistryUtils.h"
#include "tests/apo/RegistryTree.h"
#include "tests/control/ChildProcess.h"
#include "tests/support/RunProgram.h"
#include "tests/tools/CommandLine.h"
#include "tools/ProgramPath.h"
#include "tools/ctl/TextConversion.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/StageLog.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/Supervisor.h"

namespace vellumic::tools {
namespace {

constexpr auto ok = Verdict::ok, notOk = Verdict::notOk, unknown = Verdict::unknown;

// Every line that says "not ok", what is near it and does not, and what the person is told to do.
TEST(SelfTest, SaysOkNotOkAndUntoldOfTheSameFacts) {
  const struct {
    Outcome outcome;
    Verdict verdict;
    const char* part;
  } cases[] = {
      {judgeFormats(118, "accepts plain 3"), notOk, "plain 3; send"},
      {judgeGain(6.09, 6.0), ok, "6.09 dB"},
      {judgeGain(5.8, 6.0), notOk, "5.80 dB instead of 6.00"},
      {judgeGain(NAN, 6.0), notOk, "instead of 6.00 dB; send"},
      {judgeEcho(10.5, true), ok, "10.50 dB less"},
      {judgeEcho(9.5, true), notOk, "9.50 dB less"},
      {judgeEcho(9.5, false), unknown, "this machine's settings"},
      {judgeSound({.peakIn = 0.0F}), unknown, "silence; speak"},
      {judgeSound({.failedPeriods = 2, .peakIn = 0.1F}), notOk, "2 periods not processed"},
      {judgeSound({.finite = false, .peakIn = 0.1F}), notOk, "no numbers"},
      {judgeOwnTime(9999.0, 10000.0), ok, "9999 us of 10000"},
      {judgeOwnTime(10001.0, 10000.0), notOk, "lower pipeline.block_size"},
      {judgeUnload(true, S_FALSE, false), notOk, "stays loaded"},
      {judgeUnload(true, S_OK, true), notOk, "while its objects live"},
      {judgeUnload(false, E_FAIL, true), notOk, "register ours"},
      {explained(E_ACCESSDENIED, "x"), notOk, "x: no rights; run as administrator"},
      {explained(HRESULT_FROM_WIN32(ERROR_NOT_FOUND), "x"), unknown, "no such device; connect one"},
      {explained(E_FAIL, "x"), notOk, "x: failed (0x80004005); send the report"},
  };
  for (const auto& [outcome, verdict, part] : cases) {
    EXPECT_EQ(outcome.verdict, verdict) << outcome.text;
    expectParts(outcome.text, {part});
  }
}

TEST(SelfTest, TheVerdictIsTenLinesThatNameTheFirstFault) {
  std::vector<Step> steps;
  for (const std::string& stage : stageNames())
    steps.push_back({.stage = stage, .name = "step", .outcome = good()});
  ReportFacts facts{"host 1", "Windows 10", "file.json"};
  const auto expectLine = [&](std::size_t number, const std::string& part) {
    const std::vector<std::string> lines = split(verdictText(steps, facts), '\n');
    ASSERT_EQ(lines.size(), 10U);
    expectParts(lines[number], {part});
    EXPECT_EQ(utf8(wide(lines[number])), lines[number]);  // no half characters
  };
  EXPECT_FALSE(anyFault(steps));
  for (const bool finished : {false, true}) {  // a run ended by force leaves no healthy report
    facts.finished = finished;
    EXPECT_EQ(reportText(steps, facts).find("\"healthy\": true") != std::string::npos, finished);
  }
  expectLine(9, "file.json");

  steps.push_back({.stage = "live", .name = "microphone", .outcome = untold("no microphone")});
  expectLine(3, "cannot be told here: microphone: no micro");
  steps.push_back({.stage = "live", .name = "one", .outcome = bad("\"broken\"; mend it", E_FAIL)});
  steps.push_back({.stage = "live", .name = "two", .outcome = bad(std::string(500, 'x'))});
  EXPECT_TRUE(anyFault(steps));
  expectLine(3, "one: \"broken\"; mend it (first of 2)");
  expectLine(8, "Verdict: not ok, 2 of 13 steps not ok, 1 cannot");
  expectParts(reportText(steps, facts), {R"("hresult": "0x80004005", "ms": 0.000, )"
                                         R"("text": "\"broken\"; mend it")"});
  // A long text loses its middle, never what to do.
  std::string longName = "x";
  for (int i = 0; i < 100; ++i) longName += "\xC3\xA4";
  steps.push_back({.stage = "volume", .name = longName, .outcome = bad("y; run it anew")});
  expectLine(4, "\xC3\xA4...; run it anew");
}

// Stages of the test's own, run in processes of this program.
test::ChildMode stage(const char* name, void (*body)(StageLog&)) {
  return {name, [body] {
            StageLog log;
            body(log);
            return 0;
          }};
}
const test::ChildMode stages[] = {
    stage("fine", [](StageLog& log) { log.tell("a\tb", good("c\nd")); }),
    stage("throws",
          [](StageLog& log) {
            log.attempt("com", []() -> Outcome { throw ComError(E_ACCESSDENIED, "opening"); });
            log.excuse("an excuse");
            log.attempt("other", []() -> Outcome { throw std::runtime_error("why"); });
          }),
    stage("crashes",
          [](StageLog& log) {
            log.willChange("undo");
            log.willChange("undone already");
            log.changedBack("undone already");
            log.attempt("falls", []() -> Outcome {
              TerminateProcess(GetCurrentProcess(), 0xC0000005);
              return good();
            });
          }),
    stage("hangs",
          [](StageLog& log) {
            log.attempt("waits", [] {
              Sleep(20000);
              return good();
            });
          }),
    {"babbles",
     [] {
       std::puts("step\tx");
       std::puts("step\ty\t7\t0\t0\ttext");
       std::puts("terminate called at C:\\Users\\Jane Doe\\x \xFF");
       return 3;
     }},
    stage("leaves",
          [](StageLog& log) {
            log.willChange("undo");
            log.tell("left", good());
          }),
    stage("spoils", [](StageLog& log) { log.willChange("babbles"); }),
    stage("undo", [](StageLog& log) { log.tell("undone", good()); }),
};

Supervisor supervisor(DWORD patienceMs = 10000, const std::wstring& program = L"test_selftest.exe",
                      const std::wstring& option = L"--child") {
  return {[=](const std::string& name) {
            return L'"' + (programFolder() / program).wstring() + L"\" " + option + L' ' +
                   wide(name);
          },
          patienceMs};
}

void expectSteps(const Supervisor& supervisor, std::vector<std::array<std::string, 3>> wanted) {
  ASSERT_EQ(supervisor.steps().size(), wanted.size());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const Step& step = supervisor.steps()[i];
    EXPECT_EQ(step.stage, wanted[i][0]);
    EXPECT_EQ(step.name, wanted[i][1]);
    expectParts(step.outcome.text, {wanted[i][2]});
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
  Supervisor stopped = supervisor();
  std::thread user([&] {
    Sleep(300);
    stopped.interrupt();
  });
  stopped.run("hangs");
  stopped.run("fine");
  user.join();
  stopped.putBack();
  expectSteps(stopped, {{"hangs", "hangs", "interrupted in "}});
  Supervisor between = supervisor();
  between.interrupt();
  for (const char* name : {"fine", "leaves"}) between.run(name);
  between.putBack();
  expectSteps(between, {{"fine", "fine", "interrupted; run again"}});
}

// The program itself, whole, on the machine of the test.
class SelfTestRun : public InOwnFolder {
 protected:
  SelfTestRun() {
    text("report.json", "older");
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, settings, L"ActiveSetting", REG_SZ,
                    std::wstring(300, L'5').c_str(), 602);
  }
  ~SelfTestRun() override {
    const std::wstring parameters = std::wstring(test::machine::product) + L"\\Parameters";
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, parameters.c_str());
  }

  // The exit code.
  static int run(const std::string& arguments) {
    return test::runProgram((programFolder() / "vellumic-host.exe").string() +
                            " --selftest --endpoint " + arguments + " report.json >printed 2>&1");
  }
  // What a run might leave: another active setting and settings of its own, the class registered, a
  // key to try on.
  static auto traces() {
    const auto tree = [](const wchar_t* path) { return test::treeBelow(HKEY_LOCAL_MACHINE, path); };
    RegistryKey toTry;  // closed even to us
    return std::tuple(tree(settings),
                      tree(L"SOFTWARE\\Classes\\CLSID\\{577F6409-47DB-42FF-B8EA-09DCF969B687}"),
                      RegOpenKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Vellumic-selftest", toTry.put()));
  }
  static constexpr const wchar_t* settings = test::machine::settings;
};

TEST_F(SelfTestRun, WholeRunIsInOrderAndLeavesNothing) {
  const auto before = traces();
  const int exitCode = run("array4 --seconds 1");
  const std::string text = contents("report-2.json"), console = contents("printed");
  EXPECT_EQ(exitCode, 0) << console << text;
  EXPECT_EQ(std::ranges::count(console, '\n'), 12) << console;
  EXPECT_EQ(text.find("\"not ok\""), std::string::npos) << text;
  for (const std::string& stage : stageNames()) expectParts(text, {"\"stage\": \"" + stage + "\""});
  expectParts(text, {"\"doctor: attached\""});
  // What must have been told even here, where much cannot be.
  for (const char* step :
       {"efx created", "kdmfx locked and run", "mfx in mode speech", "equaliser raises 1 kHz",
        "follows a reload", "effects change", "cancels an echo", "mfx on the microphone",
        "effects on the status board", "calls, by the clock", "round 3"}) {
    const std::string at = text.substr(std::min(text.find(step), text.size()));
    expectParts(at.substr(0, at.find('\n')), {step, "\"verdict\": \"ok\""});
  }
  EXPECT_EQ(contents("report.json"), "older");
  EXPECT_EQ(traces(), before);
}

// The stage that has just stored its settings is ended, the others still run; then a whole run
// without a microphone.
TEST_F(SelfTestRun, WhatAnEndedStageLeavesIsPutBack) {
  const RegistryKey key = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, settings);
  const auto active = readValues(key.get(), "settings");
  const auto before = traces();
  Supervisor stopped = supervisor(20000, L"vellumic-host.exe", L"--selftest-stage");
  stopped.run("register");
  bool stored = false;
  std::thread user([&] {
    for (int i = 0; i < 20000 && !stored; ++i, Sleep(1))
      stored = readValues(key.get(), "settings") != active;
    stopped.interrupt();
  });
  stopped.run("signal");
  user.join();
  EXPECT_TRUE(stored);
  stopped.putBack();
  EXPECT_EQ(traces(), before);

  EXPECT_EQ(run("nobody"), 1);
  expectParts(contents("report-2.json"),
              {"no microphone; connect one", "nobody: not found; there are: "});
  EXPECT_EQ(traces(), before);
}

}  // namespace
}  // namespace vellumic::tools
