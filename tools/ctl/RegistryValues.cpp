#include "tools/ctl/RegistryValues.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "tools/ctl/CtlOptions.h"

namespace vellumic::tools {
namespace {

std::vector<std::byte> bytesOf(const std::wstring& text) {
  const auto* const begin = reinterpret_cast<const std::byte*>(text.data());
  return {begin, begin + text.size() * sizeof(wchar_t)};
}

// In quotes, as the registry editor escapes it.
std::wstring quotedText(const std::wstring& text) {
  std::wstring result = L"\"";
  for (const wchar_t unit : text) {
    if (unit == L'"' || unit == L'\\') result += L'\\';
    result += unit;
  }
  return result + L'"';
}

std::wstring hexText(const RegistryValue& value) {
  std::array<wchar_t, 16> part{};
  std::swprintf(part.data(), part.size(), L"hex(%lx):", value.type);
  std::wstring text = part.data();
  for (std::size_t i = 0; i < value.data.size(); ++i) {
    std::swprintf(part.data(), part.size(), i == 0 ? L"%02x" : L",%02x",
                  static_cast<unsigned>(value.data[i]));
    text += part.data();
  }
  return text;
}

}  // namespace

RegistryValue textValue(const std::wstring& text) {
  return {.type = REG_SZ, .data = bytesOf(text + L'\0')};
}

RegistryValue textsValue(const std::vector<std::wstring>& texts) {
  std::wstring all;
  for (const std::wstring& text : texts) all += text + L'\0';
  return {.type = REG_MULTI_SZ, .data = bytesOf(all + L'\0')};
}

std::vector<std::wstring> textsOf(const RegistryValue& value) {
  if (value.type != REG_SZ && value.type != REG_MULTI_SZ) return {};
  std::wstring all(value.data.size() / sizeof(wchar_t), L'\0');
  std::memcpy(all.data(), value.data.data(), all.size() * sizeof(wchar_t));
  std::vector<std::wstring> texts;
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = std::min(all.find(L'\0', at), all.size());
    if (end == at) break;
    texts.push_back(all.substr(at, end - at));
    at = end + 1;
    if (value.type == REG_SZ) break;
  }
  return texts;
}

bool sameText(const std::wstring& a, const std::wstring& b) noexcept {
  return _wcsicmp(a.c_str(), b.c_str()) == 0;
}

bool NameLess::operator()(const std::wstring& a, const std::wstring& b) const noexcept {
  return _wcsicmp(a.c_str(), b.c_str()) < 0;
}

RegistryValues readValues(HKEY key, const std::string& shown) {
  constexpr DWORD longestName = 16384;
  RegistryValues values;
  std::wstring name(longestName, L'\0');
  std::vector<std::byte> data(4096);
  for (DWORD i = 0;;) {
    DWORD length = longestName, type = REG_NONE;
    auto size = static_cast<DWORD>(data.size());
    const LSTATUS status = RegEnumValueW(key, i, name.data(), &length, nullptr, &type,
                                         reinterpret_cast<BYTE*>(data.data()), &size);
    if (status == ERROR_NO_MORE_ITEMS) return values;
    if (status == ERROR_MORE_DATA && size > data.size()) {
      data.resize(size);
      continue;
    }
    if (status != ERROR_SUCCESS)
      throw CtlError(shown + ": cannot be read (error " + std::to_string(status) +
                     "); run as administrator");
    values[name.substr(0, length)] = {.type = type, .data = {data.begin(), data.begin() + size}};
    ++i;
  }
}

LSTATUS writeValue(HKEY key, const std::wstring& name, const std::optional<RegistryValue>& value) {
  if (value)
    return RegSetValueExW(key, name.c_str(), 0, value->type,
                          reinterpret_cast<const BYTE*>(value->data.data()),
                          static_cast<DWORD>(value->data.size()));
  const LSTATUS status = RegDeleteValueW(key, name.c_str());
  return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

std::wstring regFileText(const std::wstring& keyPath, const RegistryValues& values,
                         const std::vector<std::wstring>& removed) {
  std::wstring text = L"\xFEFFWindows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\" +
                      keyPath + L"]\r\n";
  for (const std::wstring& name : removed) text += quotedText(name) + L"=-\r\n";
  for (const auto& [name, value] : values)
    text += (name.empty() ? L"@" : quotedText(name)) + L"=" + hexText(value) + L"\r\n";
  return text + L"\r\n";
}

}  // namespace vellumic::tools
