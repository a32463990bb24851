// What stands below a registry key, and a key of the test's own.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>

#include "control/Handle.h"
#include "tools/ctl/RegistryValues.h"

namespace vellumic::test {

using RegistryTree = std::map<std::wstring, tools::RegistryValues>;  // by path

inline void readTree(HKEY key, const std::wstring& path, RegistryTree& all) {
  all[path] = tools::readValues(key, "key");
  std::array<wchar_t, 512> child{};
  for (DWORD i = 0; RegEnumKeyW(key, i, child.data(), child.size()) == ERROR_SUCCESS; ++i) {
    RegistryKey opened;
    if (RegOpenKeyExW(key, child.data(), 0, KEY_READ, opened.put()) == ERROR_SUCCESS)
      readTree(opened.get(), path + L"\\" + child.data(), all);
  }
}
// With the keys that have no values.
inline RegistryTree treeBelow(HKEY root, const wchar_t* path) {
  RegistryTree all;
  RegistryKey key;
  if (RegOpenKeyExW(root, path, 0, KEY_READ, key.put()) == ERROR_SUCCESS)
    readTree(key.get(), L"", all);
  return all;
}

class ScratchKey {
 public:
  ScratchKey() {
    RegDeleteTreeW(HKEY_CURRENT_USER, name);
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, name, key_.put()), ERROR_SUCCESS);
  }
  ~ScratchKey() { RegDeleteTreeW(HKEY_CURRENT_USER, name); }
  [[nodiscard]] HKEY root() const { return key_.get(); }
  // The keys that have values.
  [[nodiscard]] static RegistryTree tree() {
    RegistryTree all = treeBelow(HKEY_CURRENT_USER, name);
    std::erase_if(all, [](const auto& key) { return key.second.empty(); });
    return all;
  }
  static constexpr wchar_t name[] = L"Software\\VellumicTestScratch";

 private:
  RegistryKey key_;
};

}  // namespace vellumic::test
