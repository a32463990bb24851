// A setting in the registry for as long as the program runs, as a controlling program would store
// it: Param<n> values of a setting of our own, selected as the active one. The setting that was
// active before is selected again at the end, and keys of the tree that hold nothing then go.
// Writing needs an administrator's rights on Windows.
#pragma once

#include <windows.h>

#include "control/Handle.h"
#include "parameters/Catalogue.h"

namespace vellumic::tools {

class RegistrySetting {
 public:
  explicit RegistrySetting(const RawValues& values);  // throws std::runtime_error
  ~RegistrySetting();
  RegistrySetting(const RegistrySetting&) = delete;
  RegistrySetting& operator=(const RegistrySetting&) = delete;

  void store(const RawValues& values);

  // What the destructor does, also for a program that was cut short. False: something is left.
  static bool putBack() noexcept;

 private:
  RegistryKey settings_, setting_;
};

}  // namespace vellumic::tools
