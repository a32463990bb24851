// Reading of the registry, under HKEY_LOCAL_MACHINE and never writing.
// Thread: any but the real-time thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "control/Handle.h"

namespace vellumic {

// The text of ActiveSetting: 40 bytes as stored, and a terminator that is always there.
using SettingName = std::array<wchar_t, 21>;

class CRegistryUtils {
 public:
  // KEY_READ; empty if the key cannot be opened. An empty path opens the parent once more.
  [[nodiscard]] static RegistryKey openKey(HKEY parent, const wchar_t* path) noexcept;

  struct Reading {
    LSTATUS status;  // of the query: ERROR_FILE_NOT_FOUND is kept apart from other failures
    DWORD type;
    DWORD size;  // bytes; on ERROR_MORE_DATA those that the value has
  };
  // Copies a value of any type that fits into buffer; a longer one leaves the buffer alone.
  static Reading query(HKEY key, const wchar_t* name, std::span<std::byte> buffer) noexcept;

  // A value of any type and at most 4 bytes, missing bytes 0.
  [[nodiscard]] static std::optional<std::uint32_t> readDword(HKEY key,
                                                              const wchar_t* name) noexcept;
};

}  // namespace vellumic
