#include "tools/host/RegistrySetting.h"

#include <array>
#include <stdexcept>

namespace vellumic::tools {
namespace {

constexpr wchar_t settingsPath[] =
    L"SOFTWARE\\Mirandor\\Vellumic\\Parameters\\{DFF21CE1-F70F-11D0-B917-00A0C9223196}\\Settings";
constexpr wchar_t activeName[] = L"ActiveSetting";
constexpr wchar_t ownName[] = L"vellumic-host";

void checkRegistry(LSTATUS status) {
  if (status == ERROR_SUCCESS) return;
  throw std::runtime_error("settings: cannot write HKEY_LOCAL_MACHINE (error " +
                           std::to_string(status) + "); run as administrator");
}

void setText(HKEY key, const wchar_t* name, const std::wstring& text) {
  const auto bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  checkRegistry(
      RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes));
}

std::optional<std::wstring> readText(HKEY key, const wchar_t* name) {
  std::array<wchar_t, 256> text{};
  DWORD size = sizeof text - sizeof text[0];
  if (RegGetValueW(key, nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(), &size) != ERROR_SUCCESS)
    return std::nullopt;
  return text.data();
}

}  // namespace

RegistrySetting::RegistrySetting(const RawValues& values) {
  checkRegistry(RegCreateKeyExW(HKEY_LOCAL_MACHINE, settingsPath, 0, nullptr, 0, KEY_ALL_ACCESS,
                                nullptr, settings_.put(), nullptr));
  activeBefore_ = readText(settings_.get(), activeName);
  if (activeBefore_ == ownName) activeBefore_.reset();  // of a run that was cut short
  checkRegistry(RegCreateKeyExW(settings_.get(), ownName, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                setting_.put(), nullptr));
  store(values);
  setText(settings_.get(), activeName, ownName);
}

void RegistrySetting::store(const RawValues& values) {
  for (std::size_t slot = 0; slot < values.size(); ++slot) {
    const std::wstring name = L"Param" + std::to_wstring(slot + 1);
    checkRegistry(RegSetValueExW(setting_.get(), name.c_str(), 0, REG_DWORD,
                                 reinterpret_cast<const BYTE*>(&values[slot]), sizeof(float)));
  }
}

RegistrySetting::~RegistrySetting() {
  setting_.reset();
  RegDeleteKeyW(settings_.get(), ownName);
  if (activeBefore_) {
    const auto bytes = static_cast<DWORD>((activeBefore_->size() + 1) * sizeof(wchar_t));
    RegSetValueExW(settings_.get(), activeName, 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(activeBefore_->c_str()), bytes);
  } else {
    RegDeleteValueW(settings_.get(), activeName);
  }
}

}  // namespace vellumic::tools
