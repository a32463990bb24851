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

// Below a key's path, with the keys that have no values.
inline RegistryTree treeBelow(HKEY root, const std::wstring& path) {
  RegistryTree all;
  RegistryKey key;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return all;
  all[L""] = tools::readValues(key.get(), "key");
  std::array<wchar_t, 512> name{};
  for (DWORD i = 0; RegEnumKeyW(key.get(), i, name.data(), name.size()) == ERROR_SUCCESS; ++i) {
    const std::wstring child = std::wstring(L"\\") + name.data();
    for (auto& [below, values] : treeBelow(key.get(), name.data())) all[child + below] = values;
  }
  return all;
}
// The keys that have values.
inline RegistryTree treeOf(const ScratchKey& key) {
  RegistryTree all = treeBelow(key.root(), L"");
  std::erase_if(all, [](const auto& below) { return below.second.empty(); });
  return all;
}

}  // namespace vellumic::test
