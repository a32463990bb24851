// A second process of this test program that runs one of its modes.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "control/Handle.h"

namespace vellumic::test {

// Registers what `test_control --child NAME` does; its result is the exit code.
struct ChildMode {
  ChildMode(const char* name, std::function<int()> body);
};

class ChildProcess {
 public:
  explicit ChildProcess(const std::string& mode);
  ~ChildProcess();                             // ends it if it still runs
  DWORD wait(DWORD patienceMs = 20000) const;  // exit code; STILL_ACTIVE while it runs
  [[nodiscard]] bool runs() const { return wait(0) == STILL_ACTIVE; }

 private:
  KernelHandle process_, thread_;
};

}  // namespace vellumic::test
