// Stands in the import table of the loaded library before every function that it calls.
//
// While `watchedThread` is a thread's id, each call that this thread makes to a function of
// another module is counted; everything else goes through at the cost of a compare. Allocation can
// be made to fail.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace vellumic::test {

class ImportTable {
 public:
  explicit ImportTable(HMODULE module);
  ~ImportTable();  // takes the stand-ins out again
  ImportTable(const ImportTable&) = delete;
  ImportTable& operator=(const ImportTable&) = delete;

  void watchThisThread() { block_->watchedThread = GetCurrentThreadId(); }
  void stopWatching() { block_->watchedThread = 0; }
  [[nodiscard]] std::set<std::string> called() const;  // by a watched thread

  // Puts another function in an import's place; gives the original. Null when it is not imported.
  template <class Function>
  Function* replace(const char* function, Function* replacement) {
    return reinterpret_cast<Function*>(swap(function, reinterpret_cast<void*>(replacement)));
  }

  // The same of an import that is there.
  template <class Function>
  Function* put(const char* function, Function* replacement) {
    Function* const original = replace(function, replacement);
    EXPECT_TRUE(original != nullptr) << function;
    return original;
  }

 private:
  struct Import {
    std::string name;
    void** slot;
    void* original;
  };
  struct Block {  // what the machine code reads and writes
    std::uint64_t watchedThread;
    std::uint64_t counts[1024];
  };
  void* swap(const char* function, void* replacement);
  static void write(void** slot, void* value);

  std::vector<Import> imports_;
  Block* block_ = nullptr;
};

}  // namespace vellumic::test
