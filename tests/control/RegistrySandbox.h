// Registry keys of the test's own.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <span>
#include <string>

#include "control/Handle.h"
#include "parameters/Raw.h"
#include "tests/support/MachineNames.h"

namespace vellumic::test {

// Empty at first and gone at the end; stands for another key's root, if wanted. One at a time: all
// have the same name.
class ScratchKey {
 public:
  explicit ScratchKey(HKEY inPlaceOf = nullptr) : replaced_(inPlaceOf) {
    RegDeleteTreeW(HKEY_CURRENT_USER, name().c_str());  // of a process that did not end by itself
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, name().c_str(), key_.put()), ERROR_SUCCESS);
    if (replaced_ != nullptr) {
      EXPECT_EQ(RegOverridePredefKey(replaced_, root()), ERROR_SUCCESS);
    }
  }
  ~ScratchKey() {
    if (replaced_ != nullptr) RegOverridePredefKey(replaced_, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, name().c_str());
  }
  ScratchKey(const ScratchKey&) = delete;
  ScratchKey& operator=(const ScratchKey&) = delete;

  [[nodiscard]] HKEY root() const { return key_.get(); }
  // Below HKEY_CURRENT_USER.
  static std::wstring name() {
    return L"Software\\VellumicTest" + std::to_wstring(GetCurrentProcessId());
  }

 private:
  HKEY replaced_;
  RegistryKey key_;
};

// This process's own HKEY_LOCAL_MACHINE.
class RegistrySandbox : public ScratchKey {
 public:
  RegistrySandbox() : ScratchKey(HKEY_LOCAL_MACHINE) {}

  void write(const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
             std::size_t size) {
    RegistryKey key;
    ASSERT_EQ(RegCreateKeyW(root(), path.c_str(), key.put()), ERROR_SUCCESS);
    RegSetValueExW(key.get(), name.c_str(), 0, type, static_cast<const BYTE*>(data),
                   static_cast<DWORD>(size));
  }
  void write(const std::wstring& path, const std::wstring& name, DWORD value) {
    write(path, name, REG_DWORD, &value, sizeof value);
  }
  void write(const std::wstring& path, const std::wstring& name, const std::wstring& text) {
    write(path, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  void remove(const std::wstring& path) { RegDeleteTreeW(root(), path.c_str()); }

  static std::wstring settingsPath() { return machine::settings; }
  void select(const std::wstring& setting) { write(settingsPath(), L"ActiveSetting", setting); }

  // Param<first> to Param<last> of a setting; valueOf(number) gives each.
  template <class ValueOf>
  void writeSetting(const std::wstring& setting, unsigned first, unsigned last, ValueOf valueOf) {
    RegistryKey key;
    const std::wstring path = settingsPath() + L"\\" + setting;
    ASSERT_EQ(RegCreateKeyW(root(), path.c_str(), key.put()), ERROR_SUCCESS);
    for (unsigned number = first; number <= last; ++number) {
      const float value = valueOf(number);
      RegSetValueExW(key.get(), (L"Param" + std::to_wstring(number)).c_str(), 0, REG_DWORD,
                     reinterpret_cast<const BYTE*>(&value), sizeof value);
    }
  }
  void writeSetting(const std::wstring& setting, std::span<const float> values) {
    writeSetting(setting, 1, static_cast<unsigned>(values.size()),
                 [&](unsigned number) { return values[number - 1]; });
  }
  void writeSlot(const std::wstring& setting, Raw slot, float value) {
    const auto number = static_cast<unsigned>(index(slot) + 1);
    writeSetting(setting, number, number, [=](unsigned) { return value; });
  }
};

}  // namespace vellumic::test
