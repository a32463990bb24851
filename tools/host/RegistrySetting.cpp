#include "tools/host/RegistrySetting.h"

#include <optional>
#include <stdexcept>
#include <string>

#include "tools/ctl/SettingsTree.h"

namespace vellumic::tools {
namespace {

constexpr wchar_t activeName[] = L"ActiveSetting";
constexpr wchar_t ownName[] = L"vellumic-host";
constexpr wchar_t beforeName[] = L"ActiveBefore";  // in our own setting

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

// Nothing: there is no such value. Throws for one that is no text: it could not be put back.
std::optional<std::wstring> readText(HKEY key, const wchar_t* name) {
  DWORD size = 0;
  LSTATUS status = RegGetValueW(key, nullptr, name, RRF_RT_REG_SZ, nullptr, nullptr, &size);
  if (status == ERROR_FILE_NOT_FOUND) return std::nullopt;
  std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
  size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  if (status == ERROR_SUCCESS)
    status = RegGetValueW(key, nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(), &size);
  if (status != ERROR_SUCCESS)
    throw std::runtime_error("settings: ActiveSetting cannot be read (error " +
                             std::to_string(status) + "); make it a text with regedit");
  return text.c_str();
}

// The tree's keys that hold nothing, from the lowest up to the maker's.
void removeEmptyKeys(std::wstring path) noexcept {
  for (int level = 0; level < 5; ++level) {
    RegistryKey key;
    DWORD keys = 0, values = 0;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS ||
        RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values,
                         nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS ||
        keys + values > 0)
      return;
    key.reset();
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
    path.erase(path.rfind(L'\\'));
  }
}

bool somethingIsLeft() {
  RegistryKey settings, own;
  const LSTATUS opened =
      RegOpenKeyExW(HKEY_LOCAL_MACHINE, settingsTreePath().c_str(), 0, KEY_READ, settings.put());
  if (opened != ERROR_SUCCESS) return opened != ERROR_FILE_NOT_FOUND;
  return readText(settings.get(), activeName) == ownName ||
         RegOpenKeyExW(settings.get(), ownName, 0, KEY_READ, own.put()) != ERROR_FILE_NOT_FOUND;
}

}  // namespace

RegistrySetting::RegistrySetting(const RawValues& values) try {
  putBack();  // what a run that was cut short left
  checkRegistry(RegCreateKeyExW(HKEY_LOCAL_MACHINE, settingsTreePath().c_str(), 0, nullptr, 0,
                                KEY_ALL_ACCESS, nullptr, settings_.put(), nullptr));
  checkRegistry(RegCreateKeyExW(settings_.get(), ownName, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                setting_.put(), nullptr));
  store(values);
  if (const auto active = readText(settings_.get(), activeName))
    setText(setting_.get(), beforeName, *active);
  setText(settings_.get(), activeName, ownName);
} catch (...) {
  putBack();
}

void RegistrySetting::store(const RawValues& values) {
  checkRegistry(writeSettingValues(setting_.get(), values).status);
}

RegistrySetting::~RegistrySetting() {
  setting_.reset();
  settings_.reset();
  putBack();
}

bool RegistrySetting::putBack() noexcept try {
  RegistryKey settings, own;
  const LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, settingsTreePath().c_str(), 0,
                                       KEY_ALL_ACCESS, settings.put());
  if (opened != ERROR_SUCCESS) return opened == ERROR_FILE_NOT_FOUND || !somethingIsLeft();
  if (readText(settings.get(), activeName) == ownName) {
    RegOpenKeyExW(settings.get(), ownName, 0, KEY_READ, own.put());
    if (const auto before = own ? readText(own.get(), beforeName) : std::nullopt)
      setText(settings.get(), activeName, *before);
    else
      RegDeleteValueW(settings.get(), activeName);
  }
  own.reset();
  RegDeleteKeyW(settings.get(), ownName);
  settings.reset();
  const bool left = somethingIsLeft();
  removeEmptyKeys(settingsTreePath());
  return !left;
} catch (const std::exception&) {
  return false;
}

}  // namespace vellumic::tools
