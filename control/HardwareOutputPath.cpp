// The output path that the machine's maker chose, and its headset override.
#include <array>
#include <string_view>

#include "control/Names.h"
#include "control/ParametersInRegistry.h"

namespace vellumic {
namespace {

constexpr int pathWithoutChoice = 3;
constexpr std::size_t driverCapacity = 255;  // characters
using DriverText = std::array<wchar_t, driverCapacity>;

int pathOfChoice(std::uint32_t choice) noexcept {
  switch (choice) {
    case 0:
      return 3;
    case 1:
      return 0;
    case 3:
      return 2;
    default:
      return 1;
  }
}

[[noreturn]] void endByRangeCheck() noexcept {
#ifdef _MSC_VER
  __fastfail(8);
#else
  constexpr unsigned rangeCheckFailure = 8;
  asm volatile("int $0x29" : : "c"(rangeCheckFailure));
  __builtin_unreachable();
#endif
}

bool isKnownDriver(HKEY device) noexcept {
  static constexpr wchar_t name[] = L"isstrtc.sys";
  constexpr std::wstring_view known(name, std::size(name));  // with its terminator
  DriverText text{};
  const auto reading =
      CRegistryUtils::query(device, L"Driver", std::as_writable_bytes(std::span(text)));
  if (reading.status != ERROR_SUCCESS || reading.type != REG_SZ) return false;
  // The byte count serves as a character index, so a text of half the buffer is the longest.
  if (reading.size >= driverCapacity) endByRangeCheck();
  text[reading.size] = L'\0';
  return std::wstring_view(text.data(), known.size()) == known;
}

}  // namespace

void CParametersInRegistry::readHardwareOutputPath() {
  hardwareOutputPath = pathWithoutChoice;
  if (const RegistryKey product = openKey(HKEY_LOCAL_MACHINE, productPath))
    if (const auto choice = readDword(product.get(), L"HardwareOutputPath"))
      hardwareOutputPath = pathOfChoice(*choice);

  const RegistryKey devices = openKey(HKEY_LOCAL_MACHINE, audioClassPath);
  if (!devices) return;
  for (DWORD position = 0;; ++position) {
    std::array<wchar_t, 255> name;
    DWORD length = static_cast<DWORD>(name.size());
    if (RegEnumKeyExW(devices.get(), position, name.data(), &length, nullptr, nullptr, nullptr,
                      nullptr) != ERROR_SUCCESS)
      return;
    const RegistryKey device = openKey(devices.get(), name.data());
    if (device && isKnownDriver(device.get())) readHeadsetOverride(device.get());
  }
}

void CParametersInRegistry::readHeadsetOverride(HKEY device) {
  RegistryKey status = openKey(device, L"HeadsetStatus");
  headsetStatusKey.release();  // of several devices only the last one's key is closed in the end
  headsetStatusKey = std::move(status);
  if (!headsetStatusKey) return;
  std::uint32_t headset = 0;
  const Reading reading = query(headsetStatusKey.get(), L"HeadsetStatus",
                                std::as_writable_bytes(std::span(&headset, 1)));
  if (reading.status == ERROR_SUCCESS && reading.type == REG_DWORD)
    hardwareOutputPath = headset == 1 ? 1 : 0;
}

}  // namespace vellumic
