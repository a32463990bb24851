// This process's own HKEY_LOCAL_MACHINE, empty at first and gone at the end.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/MachineNames.h"

namespace vellumic::test {

class RegistrySandbox {
 public:
  RegistrySandbox() : name_(L"Software\\VellumicTest" + std::to_wstring(GetCurrentProcessId())) {
    RegDeleteTreeW(HKEY_CURRENT_USER, name_.c_str());  // of a process that did not end by itself
    EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyW(HKEY_CURRENT_USER, name_.c_str(), &root_));
    EXPECT_EQ(ERROR_SUCCESS, RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_));
  }
  ~RegistrySandbox() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(root_);
    RegDeleteTreeW(HKEY_CURRENT_USER, name_.c_str());
  }
  RegistrySandbox(const RegistrySandbox&) = delete;
  RegistrySandbox& operator=(const RegistrySandbox&) = delete;

  void write(const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
             std::size_t size) {
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyW(root_, path.c_str(), &key));
    RegSetValueExW(key, name.c_str(), 0, type, static_cast<const BYTE*>(data),
                   static_cast<DWORD>(size));
    RegCloseKey(key);
  }
  void write(const std::wstring& path, const std::wstring& name, DWORD value) {
    write(path, name, REG_DWORD, &value, sizeof value);
  }
  void write(const std::wstring& path, const std::wstring& name, const std::wstring& text) {
    write(path, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  void remove(const std::wstring& path) { RegDeleteTreeW(root_, path.c_str()); }

  static std::wstring settingsPath() { return machine::settings; }
  void select(const std::wstring& setting) { write(settingsPath(), L"ActiveSetting", setting); }

  // Param<first> to Param<last> of a setting; valueOf(number) gives each.
  template <class ValueOf>
  void writeSetting(const std::wstring& setting, unsigned first, unsigned last, ValueOf valueOf) {
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              RegCreateKeyW(root_, (settingsPath() + L"\\" + setting).c_str(), &key));
    for (unsigned number = first; number <= last; ++number) {
      const float value = valueOf(number);
      RegSetValueExW(key, (L"Param" + std::to_wstring(number)).c_str(), 0, REG_DWORD,
                     reinterpret_cast<const BYTE*>(&value), sizeof value);
    }
    RegCloseKey(key);
  }

 private:
  std::wstring name_;
  HKEY root_ = nullptr;
};

}  // namespace vellumic::test
