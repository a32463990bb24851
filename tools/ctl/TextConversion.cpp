#include "tools/ctl/TextConversion.h"

#include <algorithm>

#include "control/BoundedText.h"

namespace vellumic::tools {

std::string utf8(std::wstring_view text) {
  const auto units = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(std::max(size, 0)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), size, nullptr, nullptr);
  return result;
}

std::wstring wide(std::string_view text) {
  const auto bytes = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(std::max(size, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, result.data(), size);
  return result;
}

std::wstring quotedArgument(std::wstring_view text) {
  std::wstring result = L"\"";
  std::size_t backslashes = 0;  // doubled in front of a quote, and only there
  for (const wchar_t unit : text) {
    if (unit == L'\\') {
      ++backslashes;
      continue;
    }
    result.append(unit == L'"' ? 2 * backslashes + 1 : backslashes, L'\\') += unit;
    backslashes = 0;
  }
  return result.append(2 * backslashes, L'\\') + L'"';
}

std::wstring_view textOf(const StatusText& text) noexcept {
  const auto end = std::ranges::find(text, L'\0');
  return {text.data(), static_cast<std::size_t>(end - text.begin())};
}

std::string guidText(const GUID& guid) { return utf8(GuidText(guid).c_str()); }

}  // namespace vellumic::tools
