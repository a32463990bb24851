// Runs the stages of the self-test, each in a process of its own: a stage that crashes, hangs or is
// ended takes no other with it, and what it changed is put back by another.
// Thread: one; interrupt() from any.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "control/Handle.h"
#include "tools/host/selftest/Steps.h"

namespace vellumic::tools {

class Supervisor {
 public:
  // commandOf: the command line that runs a stage. patienceMs: how long a stage may print nothing.
  Supervisor(std::function<std::wstring(const std::string& stage)> commandOf, DWORD patienceMs);

  // What a stage has changed and, ending before its time, left so is put back at once.
  void run(const std::string& stage);
  // Runs the stages that undo what is still changed, the latest first.
  void putBack();

  // No further stage is run, the one that runs is ended; putBack() works on.
  void interrupt() noexcept { interrupted_ = true; }
  [[nodiscard]] bool interrupted() const noexcept { return interrupted_; }
  [[nodiscard]] const std::vector<Step>& steps() const noexcept { return steps_; }

 private:
  struct Child;
  void putBack(std::size_t left);                // but for that many changes
  void tellInterrupt(const std::string& stage);  // once
  // False if it ended before its time.
  bool runChild(const std::string& stage, const std::string& command, bool mayInterrupt);
  void take(const std::string& stage, const std::string& line);
  void note(const std::string& stage, const std::string& name, const Outcome& outcome);

  std::function<std::wstring(const std::string&)> commandOf_;
  DWORD patienceMs_;
  std::atomic<bool> interrupted_{false};
  bool interruptTold_ = false;
  KernelHandle job_;  // ends the stages with this process
  std::vector<Step> steps_;
  std::vector<std::string> undo_;  // stages, in the order of the changes
  std::string begun_, lastWords_;  // of the stage that runs
};

}  // namespace vellumic::tools
