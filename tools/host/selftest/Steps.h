// What the self-test did, step by step, and what is said of it in the end.
//
// The steps run in processes of their own (Supervisor.h). What they print are lines of this file's
// making; whatever else arrives is taken for the last words of a program in trouble.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ctl/Findings.h"

namespace vellumic::tools {

// How a step went. text: one line; of notOk it ends with what to do.
struct Outcome {
  Verdict verdict = Verdict::ok;
  std::string text;
  HRESULT result = S_OK;
};
inline Outcome good(std::string text = {}) { return {Verdict::ok, std::move(text), S_OK}; }
inline Outcome bad(std::string text, HRESULT result = E_FAIL) {
  return {Verdict::notOk, std::move(text), result};
}
inline Outcome untold(std::string text, HRESULT result = S_OK) {
  return {Verdict::unknown, std::move(text), result};
}

// What a failed call means to the person at the machine, by its code. `what` begins the line, if
// any, without a remedy of its own.
Outcome explained(HRESULT result, const std::string& what);

struct Step {
  std::string stage, name;
  Outcome outcome;
  double milliseconds = 0.0;
};

// With ... for the account in every path of its folder: reports are sent away.
std::string withoutAccount(std::string text);

// A line that a stage prints, without its end.
struct StageLine {
  enum class Kind { begin, step, willChange, changedBack } kind = Kind::begin;
  Step
      step;  // begin: the name alone; willChange, changedBack: the name is the stage that undoes it
};
std::string lineOf(const StageLine& line);
std::optional<StageLine> parseLine(std::string_view line);  // nothing: not one of ours

struct ReportFacts {
  std::string program, system;  // version lines
  std::string file;             // of the report
  bool finished = true;         // false: what a run leaves that is ended by force
};

// Ten lines at most: one for each group of stages that ran, the verdict, the file.
std::string verdictText(const std::vector<Step>& steps, const ReportFacts& facts);
// The file to send back, JSON.
std::string reportText(const std::vector<Step>& steps, const ReportFacts& facts);
bool anyFault(const std::vector<Step>& steps);

}  // namespace vellumic::tools
