#include "tools/ctl/RegFile.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cwchar>

#include "tools/ctl/SettingsTree.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {

std::wstring regFileText(const std::wstring& name, const RawValues& values) {
  std::wstring text = L"\xFEFFWindows Registry Editor Version 5.00\r\n\r\n[" +
                      wide(SettingsTree::displayPath()) + L"\\" + name + L"]\r\n";
  for (std::size_t slot = 0; slot < values.size(); ++slot) {
    std::array<wchar_t, 40> line{};
    std::swprintf(line.data(), line.size(), L"\"Param%u\"=dword:%08x\r\n",
                  static_cast<unsigned>(slot + 1), std::bit_cast<std::uint32_t>(values[slot]));
    text += line.data();
  }
  return text + L"\r\n";
}

}  // namespace vellumic::tools
