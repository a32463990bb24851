// What keeps the library loaded: the count of live objects, of what callers hold of them, and of
// server locks.
// Thread: any.
#pragma once

#include <windows.h>

#include <atomic>

namespace vellumic {

class Module {
 public:
  static void addUse() noexcept { uses().fetch_add(1); }
  static void dropUse() noexcept { uses().fetch_sub(1); }
  static bool inUse() noexcept { return uses().load() != 0; }

  // For good, also against the last use's end: some thread may never leave the library's code.
  static void keepLoaded() noexcept {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(&Module::keepLoaded)),
                       &self);
  }

  // Set by DllMain; null in a program that links the objects directly.
  static HINSTANCE instance() noexcept { return handle(); }
  static void setInstance(HINSTANCE instance) noexcept { handle() = instance; }

 private:
  static std::atomic<long>& uses() noexcept {
    static constinit std::atomic<long> count{0};
    return count;
  }
  static HINSTANCE& handle() noexcept {
    static constinit HINSTANCE instance = nullptr;
    return instance;
  }
};

// One use of the library for as long as it lives. An object that callers may hold has it as its
// first member, so that it ends last.
class ModuleUse {
 public:
  ModuleUse() noexcept { Module::addUse(); }
  ~ModuleUse() { Module::dropUse(); }
  ModuleUse(const ModuleUse&) = delete;
  ModuleUse& operator=(const ModuleUse&) = delete;
};

}  // namespace vellumic
