// The values of a registry key as data: whatever stands there, byte for byte.
#pragma once

#include <windows.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vellumic::tools {

struct RegistryValue {
  DWORD type = REG_NONE;
  std::vector<std::byte> data;
  bool operator==(const RegistryValue&) const = default;
};

RegistryValue textValue(const std::wstring& text);                 // REG_SZ
RegistryValue textsValue(const std::vector<std::wstring>& texts);  // REG_MULTI_SZ

// The texts of a REG_SZ or REG_MULTI_SZ, complete or not; none for other types.
std::vector<std::wstring> textsOf(const RegistryValue& value);

// Value names and class ids are equal whatever their case.
bool sameText(const std::wstring& a, const std::wstring& b) noexcept;
struct NameLess {
  bool operator()(const std::wstring& a, const std::wstring& b) const noexcept;
};
using RegistryValues = std::map<std::wstring, RegistryValue, NameLess>;

// Throws CtlError naming `shown` when the key cannot be read to its end.
RegistryValues readValues(HKEY key, const std::string& shown);
// Writes, or without a value removes; a missing name is as good as removed.
LSTATUS writeValue(HKEY key, const std::wstring& name, const std::optional<RegistryValue>& value);

// A file for the system's registry editor: UTF-16 with a byte order mark. `removed` are names that
// importing takes away.
std::wstring regFileText(const std::wstring& keyPath, const RegistryValues& values,
                         const std::vector<std::wstring>& removed);

}  // namespace vellumic::tools
