// The stored settings in the registry, as a controlling program keeps them.
//
// Settings\ActiveSetting names the setting in force, each setting is a subkey with the values
// Param1 to Param1365. A setting is replaced in two steps, so that what is in force is whole at
// any moment, wherever the program may be cut short:
//   1. the new values go to a fresh subkey "N-new", then ActiveSetting becomes "N-new";
//   2. they are copied over those of "N", then ActiveSetting becomes "N" again.
// An interruption before the end of step 1 leaves the old setting in force, one after it the new.
// The next write finishes what was left; reading takes "N-new" for N while it is the active one.
// Failures of the registry throw CtlError with the key. Thread: one.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "control/Handle.h"
#include "parameters/Catalogue.h"

namespace vellumic::tools {

// A setting as its effects read it: a missing value is 0.
struct StoredSetting {
  RawValues values{};
  unsigned stored = 0;  // values that exist
};

// The key of all settings, under HKEY_LOCAL_MACHINE.
std::wstring settingsTreePath();
// Param1 to Param1365 of a setting's key; the first failure ends it, at the value that is named.
struct SettingWrite {
  LSTATUS status = ERROR_SUCCESS;
  std::wstring value{};
};
SettingWrite writeSettingValues(HKEY setting, const RawValues& values);

class SettingsTree {
 public:
  // The path under HKEY_LOCAL_MACHINE, with that name in front.
  static std::string displayPath();

  [[nodiscard]] static bool exists();
  // The active setting's name; "2" where none is named.
  [[nodiscard]] static std::wstring activeName();
  // All names, numbers first and in their order.
  [[nodiscard]] static std::vector<std::wstring> names();
  [[nodiscard]] static std::optional<StoredSetting> read(const std::wstring& name);
};

// The right to write; one program at a time. Creates the tree if it is missing.
class SettingsWriter {
 public:
  SettingsWriter();
  ~SettingsWriter();
  SettingsWriter(const SettingsWriter&) = delete;
  SettingsWriter& operator=(const SettingsWriter&) = delete;

  [[nodiscard]] bool createdTree() const noexcept { return createdTree_; }
  // Writes a setting, which may exist, and makes it the active one.
  void replace(const std::wstring& name, const RawValues& values);
  void activate(const std::wstring& name);
  // Removes the fresh subkeys of this and of interrupted writes, once no effect reads them.
  void tidy();

 private:
  void writeValues(const std::wstring& subkey, const RawValues& values);
  void finishInterrupted();

  KernelHandle mutex_;
  RegistryKey settings_;
  bool createdTree_ = false;
};

}  // namespace vellumic::tools
