#include "tools/host/selftest/Supervisor.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace vellumic::tools {
namespace {

constexpr DWORD stepMs = 10;
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
    // A group of its own: Ctrl+C reaches us alone.
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE,
                        CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP, nullptr, nullptr, &startup,
                        &information)) {
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
  if (interrupted_) return;
  const std::size_t before = undo_.size();
  if (!runChild(stage, stage, true)) putBack(before);
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
    note(stage, bad("cannot be started (error " + std::to_string(child.error) +
                    "); is a virus scanner in the way?"));
    return false;
  }
  ULONGLONG heard = GetTickCount64();
  bool hung = false, stopped = false;
  std::string line;
  for (bool ended = false;;) {
    if (child.read()) {
      heard = GetTickCount64();
      while (child.nextLine(line)) take(stage, line);
      continue;
    }
    if (ended) break;  // and everything is read
    ended = WaitForSingleObject(child.process.get(), stepMs) == WAIT_OBJECT_0;
    stopped = stopped || (mayInterrupt && interrupted_);
    hung = hung || (!stopped && GetTickCount64() - heard > patienceMs_);
    if (!ended && (hung || stopped)) child.end();
  }
  if (!child.text.empty()) take(stage, child.text);
  DWORD code = 0;
  GetExitCodeProcess(child.process.get(), &code);
  const std::string where = " in " + begun_ + (lastWords_.empty() ? "" : ", saying: " + lastWords_);
  if (stopped)
    note(stage, bad("interrupted" + where + "; run again"));
  else if (hung)
    note(stage, bad("answers no more" + where + "; send the report"));
  else if (code != 0)
    note(stage, bad(exitText(code) + where + "; send the report", static_cast<HRESULT>(code)));
  return !stopped && !hung && code == 0;
}

void Supervisor::take(const std::string& stage, const std::string& text) {
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

void Supervisor::note(const std::string& stage, const Outcome& outcome) {
  steps_.push_back({.stage = stage, .name = stage, .outcome = outcome});
}

}  // namespace vellumic::tools
