#include "tools/host/selftest/Supervisor.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "tools/StartProcess.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr DWORD stepMs = 10;
constexpr DWORD endingMs = 5000;  // for a process to go once it is ended
constexpr DWORD endedByUs = 0xFFFFFFFE;

std::string exitText(DWORD code) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "ended with 0x%08lX", static_cast<unsigned long>(code));
  return text.data();
}

}  // namespace

// A process and the pipe that it prints to.
struct Supervisor::Child {
  KernelHandle process, output;
  std::string text;  // read, not yet a whole line
  DWORD error = 0;

  Child(std::wstring command, HANDLE job) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    KernelHandle input;
    if (!CreatePipe(output.put(), input.put(), &inherited, 0)) {
      error = GetLastError();
      return;
    }
    SetHandleInformation(output.get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = input.get();
    PROCESS_INFORMATION information{};
    // A console of its own: Ctrl+C, and the end of ours, reach us alone.
    if (!startProcess(std::move(command), true,
                      CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP | CREATE_NO_WINDOW, startup,
                      information)) {
      error = GetLastError();
      return;
    }
    process.reset(information.hProcess);
    const KernelHandle thread(information.hThread);
    AssignProcessToJobObject(job, process.get());
    ResumeThread(thread.get());
  }

  void end() const { TerminateProcess(process.get(), endedByUs); }

  // What has come since; true if anything.
  bool read() {
    DWORD waiting = 0, got = 0;
    std::array<char, 4096> buffer{};
    if (!PeekNamedPipe(output.get(), nullptr, 0, nullptr, &waiting, nullptr) || waiting == 0)
      return false;
    const DWORD wanted = std::min<DWORD>(waiting, buffer.size());
    if (!ReadFile(output.get(), buffer.data(), wanted, &got, nullptr)) return false;
    text.append(buffer.data(), got);
    return got > 0;
  }
  bool nextLine(std::string& line) {
    const std::size_t end = text.find('\n');
    if (end == std::string::npos) return false;
    line = text.substr(0, end);
    text.erase(0, end + 1);
    while (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
  }
};

Supervisor::Supervisor(std::function<std::wstring(const std::string&)> commandOf, DWORD patienceMs)
    : commandOf_(std::move(commandOf)),
      patienceMs_(patienceMs),
      job_(CreateJobObjectW(nullptr, nullptr)) {
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job_.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
}

void Supervisor::run(const std::string& stage) {
  if (interrupted_) return tellInterrupt(stage);
  const std::size_t before = undo_.size();
  if (!runChild(stage, stage, true)) putBack(before);
}

void Supervisor::tellInterrupt(const std::string& stage) {
  if (!std::exchange(interruptTold_, true)) note(stage, stage, bad("interrupted; run again"));
}

void Supervisor::putBack() {
  if (interrupted_) tellInterrupt("put-back");
  putBack(0);
}

void Supervisor::putBack(std::size_t left) {
  while (undo_.size() > left) {
    const std::string last = undo_.back();
    undo_.pop_back();
    runChild("put-back", last, false);
  }
}

bool Supervisor::runChild(const std::string& stage, const std::string& command, bool mayInterrupt) {
  begun_ = "its start";
  lastWords_.clear();
  Child child(commandOf_(command), job_.get());
  if (!child.process) {
    note(stage, command,
         bad("cannot be started (error " + std::to_string(child.error) +
             "); is a virus scanner in the way?"));
    return false;
  }
  ULONGLONG heard = GetTickCount64(), endedAt = 0;
  bool hung = false, stopped = false, gone = false;
  std::string line;
  for (;;) {
    if (child.read()) {
      heard = GetTickCount64();
      while (child.nextLine(line)) take(stage, line);
    } else if (gone) {
      break;  // and everything is read
    } else {
      gone = WaitForSingleObject(child.process.get(), stepMs) == WAIT_OBJECT_0;
    }
    if (gone) continue;
    stopped = stopped || (!hung && mayInterrupt && interrupted_);
    hung = hung || (!stopped && GetTickCount64() - heard > patienceMs_);
    if (!hung && !stopped) continue;
    child.end();
    if (endedAt == 0) endedAt = GetTickCount64();
    if (GetTickCount64() - endedAt > endingMs) break;  // a driver holds it
  }
  if (!child.text.empty()) take(stage, child.text);
  DWORD code = 0;
  GetExitCodeProcess(child.process.get(), &code);
  const std::string where = " in " + begun_ +
                            (lastWords_.empty() ? "" : ", saying: " + lastWords_) +
                            (gone ? "" : ", and its process does not end");
  // What another run does first is to put back what one has left.
  const std::string remedy = mayInterrupt ? "; send the report" : "; run the self-test once more";
  if (stopped) {
    note(stage, command, bad("interrupted" + where + "; run again"));
    interruptTold_ = true;
  } else if (hung) {
    note(stage, command, bad("answers no more" + where + remedy));
  } else if (code != 0) {
    note(stage, command, bad(exitText(code) + where + remedy, static_cast<HRESULT>(code)));
  }
  return !stopped && !hung && code == 0;
}

void Supervisor::take(const std::string& stage, const std::string& printed) {
  const std::string text = withoutAccount(utf8(wide(printed)));  // what is no UTF-8 is replaced
  auto line = parseLine(text);
  if (!line) {
    if (!text.empty()) lastWords_ = text;
    return;
  }
  switch (line->kind) {
    case StageLine::Kind::begin:
      begun_ = line->step.name;
      break;
    case StageLine::Kind::step:
      line->step.stage = stage;
      steps_.push_back(std::move(line->step));
      begun_ = "what follows " + begun_;
      break;
    case StageLine::Kind::willChange:
      undo_.push_back(line->step.name);
      break;
    case StageLine::Kind::changedBack:
      std::erase(undo_, line->step.name);
      break;
  }
}

void Supervisor::note(const std::string& stage, const std::string& name, const Outcome& outcome) {
  steps_.push_back({.stage = stage, .name = name, .outcome = outcome});
}

}  // namespace vellumic::tools
