// Inside a stage: runs its steps, times them, and prints one line each for the supervisor.
// Thread: one.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "tools/host/ComTools.h"
#include "tools/host/selftest/Steps.h"

namespace vellumic::tools {

class StageLog {
 public:
  // Runs body(), which gives an Outcome or throws; what it throws is a fault. True if it went well.
  template <class Body>
  bool attempt(const std::string& name, Body body) {
    print({.kind = StageLine::Kind::begin, .step = {.stage = {}, .name = name, .outcome = {}}});
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    Outcome outcome;
    try {
      outcome = body();
    } catch (const ComError& error) {
      outcome = explained(error.result, error.action);
    } catch (const std::exception& error) {
      outcome = bad(error.what());
    }
    const std::chrono::duration<double, std::milli> taken = Clock::now() - begin;
    if (outcome.verdict == Verdict::notOk && !excuse_.empty())
      outcome = untold(excuse_ + ": " + outcome.text, outcome.result);
    print({.kind = StageLine::Kind::step,
           .step = {.stage = {}, .name = name, .outcome = outcome, .milliseconds = taken.count()}});
    return outcome.verdict == Verdict::ok;
  }
  // A call: `text` when it went well, what its code means when not.
  template <class Call>
  bool call(const std::string& name, Call call, const std::string& text = {}) {
    return attempt(name, [&] {
      const HRESULT result = call();
      return SUCCEEDED(result) ? Outcome{Verdict::ok, text, result} : explained(result, {});
    });
  }
  // Inside a handler: what was thrown, as a step.
  void tellThrown(const std::string& name) {
    attempt(name, []() -> Outcome { throw; });
  }
  void tell(const std::string& name, const Outcome& outcome) {
    attempt(name, [&] { return outcome; });
  }

  // From here on faults cannot be told here, for this reason; empty: they can.
  void excuse(std::string reason) { excuse_ = std::move(reason); }

  // Around a change that outlives the process: the stage that undoes it, should this one not.
  void willChange(const std::string& undo) {
    print(
        {.kind = StageLine::Kind::willChange, .step = {.stage = {}, .name = undo, .outcome = {}}});
  }
  void changedBack(const std::string& undo) {
    print(
        {.kind = StageLine::Kind::changedBack, .step = {.stage = {}, .name = undo, .outcome = {}}});
  }

 private:
  static void print(const StageLine& line) {
    std::printf("%s\n", lineOf(line).c_str());
    std::fflush(stdout);
  }
  std::string excuse_;
};

// Wine answers some calls in part; what fails there says nothing of a machine with Windows.
inline bool underWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}
inline std::string wineExcuse() { return underWine() ? "Wine has it in part" : ""; }

}  // namespace vellumic::tools
