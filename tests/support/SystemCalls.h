// What a module asks of the system, as it was asked: every call that makes, opens, waits for,
// signals or closes a kernel object or a registry key, or writes to one, with its arguments, and
// what is open.
//
// A line names the function, its numbers in hexadecimal, its texts, and for a handle the last part
// of the name that it was opened by: "WaitForSingleObject <Name> 64". Objects of the runtime
// library, which were opened otherwise, are not told. One module at a time.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

#include "platform/CriticalLock.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {

class SystemCalls {
 public:
  enum class Keeps { lines, openObjects };
  SystemCalls(HMODULE module, Keeps keeps);

  // The lines since the last time, of the calling thread or of all others.
  std::vector<std::string> ofThisThread() { return take(true); }
  std::vector<std::string> ofOtherThreads() { return take(false); }
  // What was opened since the construction: names, sorted.
  [[nodiscard]] std::vector<std::string> stillOpen() const;

 private:
  friend struct SystemCallHooks;
  struct Line {
    DWORD thread;
    std::string text;
  };
  std::vector<std::string> take(bool own);

  const Keeps keeps_;
  mutable CriticalLock lock_;
  std::map<const void*, std::string> open_;
  std::vector<Line> lines_;
  ImportTable imports_;
};

}  // namespace vellumic::test
