// What a module asks of the system, as it was asked: every call that makes, opens, waits for,
// signals or closes a kernel object or a registry key, or writes to one, with its arguments, and
// what is open.
//
// A line names the function, its numbers in hexadecimal, its texts, and for a handle the last part
// of the name that it was opened by: "WaitForSingleObject <Name> 64". Objects of the runtime
// library, which were opened otherwise, are not told. One module at a time.
#pragma once

#include <windows.h>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "platform/CriticalLock.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {

struct OpenObjects {
  int handles = 0, views = 0, keys = 0;
  bool operator==(const OpenObjects&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const OpenObjects& open);

class SystemCalls {
 public:
  enum class Keeps { lines, openObjects };
  SystemCalls(HMODULE module, Keeps keeps);

  // The lines since the last time, of the calling thread or of all others.
  std::vector<std::string> ofThisThread() { return take(true); }
  std::vector<std::string> ofOtherThreads() { return take(false); }
  [[nodiscard]] std::vector<std::string> stillOpen() const;  // sorted
  [[nodiscard]] OpenObjects openObjects() const;             // opened since the construction

 private:
  friend struct SystemCallHooks;
  enum class Kind { handle, view, key };
  struct Object {
    Kind kind;
    std::string name;
  };
  struct Line {
    DWORD thread;
    std::string text;
  };
  std::vector<std::string> take(bool own);

  const Keeps keeps_;
  mutable CriticalLock lock_;
  std::map<const void*, Object> open_;
  std::vector<Line> lines_;
  ImportTable imports_;
};

}  // namespace vellumic::test
