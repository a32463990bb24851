#include "control/DeviceProperties.h"

#include <rpc.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace vellumic {

ComPtr<IMMDeviceEnumerator> createDeviceEnumerator(HRESULT& result) noexcept {
  ComPtr<IMMDeviceEnumerator> enumerator;
  result = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                            __uuidof(IMMDeviceEnumerator), enumerator.putVoid());
  if (FAILED(result)) enumerator.reset();
  return enumerator;
}

std::optional<GUID> parseBracedGuid(const wchar_t* text) noexcept {
  constexpr std::size_t length = 36;
  const std::wstring_view braced = text != nullptr ? text : L"";
  if (braced.size() < length + 1) return std::nullopt;
  std::array<wchar_t, length + 1> digits{};
  std::copy_n(braced.begin() + 1, length, digits.begin());
  GUID guid;
  if (UuidFromStringW(reinterpret_cast<RPC_WSTR>(digits.data()), &guid) != RPC_S_OK)
    return std::nullopt;
  return guid;
}

}  // namespace vellumic
