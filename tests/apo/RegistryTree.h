// What stands below a registry key.
#pragma once

#include <windows.h>

#include <array>
#include <map>
#include <string>

#include "tests/control/RegistrySandbox.h"
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

// The keys that have values.
inline RegistryTree treeOf(const ScratchKey& key) {
  RegistryTree all = treeBelow(key.root(), L"");
  std::erase_if(all, [](const auto& below) { return below.second.empty(); });
  return all;
}

}  // namespace vellumic::test
