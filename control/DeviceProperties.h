// What endpoints tell about themselves. Thread: any with COM; never the real-time thread.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <optional>

#include "control/ComPtr.h"

namespace vellumic {

inline constexpr GUID endpointPropertySet = {
    0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}};
inline constexpr PROPERTYKEY endpointGuidKey = {endpointPropertySet, 4};
inline constexpr PROPERTYKEY jackSubTypeKey = {endpointPropertySet, 8};

// The system's enumerator; empty on failure, with its result in `result`.
[[nodiscard]] ComPtr<IMMDeviceEnumerator> createDeviceEnumerator(HRESULT& result) noexcept;

// Parses characters 1 to 36 of "{...}"; nothing for null or malformed texts.
[[nodiscard]] std::optional<GUID> parseBracedGuid(const wchar_t* text) noexcept;

}  // namespace vellumic
