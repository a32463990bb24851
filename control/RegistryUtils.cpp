#include "control/RegistryUtils.h"

namespace vellumic {

RegistryKey CRegistryUtils::openKey(HKEY parent, const wchar_t* path) noexcept {
  HKEY key = nullptr;
  if (RegOpenKeyExW(parent, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return {};
  return RegistryKey(key);
}

CRegistryUtils::Reading CRegistryUtils::query(HKEY key, const wchar_t* name,
                                              std::span<std::byte> buffer) noexcept {
  Reading reading = {ERROR_SUCCESS, REG_NONE, static_cast<DWORD>(buffer.size())};
  reading.status = RegQueryValueExW(key, name, nullptr, &reading.type,
                                    reinterpret_cast<BYTE*>(buffer.data()), &reading.size);
  return reading;
}

std::optional<std::uint32_t> CRegistryUtils::readDword(HKEY key, const wchar_t* name) noexcept {
  std::uint32_t value = 0;
  if (query(key, name, std::as_writable_bytes(std::span(&value, 1))).status != ERROR_SUCCESS)
    return std::nullopt;
  return value;
}

}  // namespace vellumic
