// What keeps the library loaded: the count of live objects and of server locks.
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

}  // namespace vellumic
