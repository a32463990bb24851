#include "tools/ctl/SettingsTree.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <tuple>

#include "control/BoundedText.h"
#include "control/Names.h"
#include "control/RegistryUtils.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr wchar_t activeValue[] = L"ActiveSetting";
constexpr wchar_t writerMutexName[] = L"Global\\VellumicCtlSettingsWriter";
constexpr std::wstring_view freshSuffix = L"-new";
constexpr DWORD writerPatienceMs = 10000;
constexpr DWORD readingMs = 250;               // far longer than an effect reads a setting
constexpr unsigned shortSettingCount = 323;    // a setting of old; the effects mark it
constexpr std::size_t longestActiveName = 19;  // the effects read 40 bytes

[[noreturn]] void fail(const std::wstring& subkey, const std::string& action, LSTATUS status) {
  const std::string fix =
      status == ERROR_ACCESS_DENIED ? "; run as administrator" : "; see the key with regedit";
  throw CtlError(SettingsTree::displayPath() + (subkey.empty() ? "" : "\\" + utf8(subkey)) + ": " +
                 action + " failed (error " + std::to_string(status) + ")" + fix);
}

void check(LSTATUS status, const std::wstring& subkey, const std::string& action) {
  if (status != ERROR_SUCCESS) fail(subkey, action, status);
}

RegistryKey openTree() {
  return CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, settingsTreePath().c_str());
}

bool isFresh(std::wstring_view subkey) { return subkey.ends_with(freshSuffix); }
std::wstring freshOf(const std::wstring& name) { return name + std::wstring(freshSuffix); }
std::wstring nameOf(std::wstring subkey) {
  if (isFresh(subkey)) subkey.resize(subkey.size() - freshSuffix.size());
  return subkey;
}

// The active subkey as the effects read it at a reload.
std::wstring activeSubkey(HKEY settings) {
  SettingName name{};
  const auto buffer = std::as_writable_bytes(std::span(name)).first(sizeof name - sizeof name[0]);
  const auto reading = CRegistryUtils::query(settings, activeValue, buffer);
  if (reading.status != ERROR_SUCCESS || reading.type != REG_SZ) return L"2";
  return name.data();
}

std::wstring valueName(std::size_t slot) { return L"Param" + std::to_wstring(slot + 1); }

StoredSetting readValues(HKEY key) {
  StoredSetting setting;
  unsigned beforeGap = 0;
  for (std::size_t slot = 0; slot < rawCount; ++slot) {
    const auto value = std::as_writable_bytes(std::span(&setting.values[slot], 1));
    if (CRegistryUtils::query(key, valueName(slot).c_str(), value).status == ERROR_FILE_NOT_FOUND)
      continue;
    if (beforeGap == slot) ++beforeGap;
    ++setting.stored;
  }
  if (beforeGap == shortSettingCount) setting.values[index(Raw::shortSettingMark)] = 1.0F;
  return setting;
}

std::vector<std::wstring> subkeys(HKEY settings) {
  std::vector<std::wstring> all;
  std::array<wchar_t, 256> name{};
  for (DWORD i = 0;; ++i) {
    DWORD length = name.size();
    if (RegEnumKeyExW(settings, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS)
      return all;
    all.emplace_back(name.data(), length);
  }
}

void writeActive(HKEY settings, const std::wstring& subkey) {
  if (subkey.size() > longestActiveName)
    throw CtlError(SettingsTree::displayPath() + ": " + utf8(activeValue) + ": the name " +
                   utf8(subkey) + " is too long for the effects; activate another setting");
  const auto bytes = static_cast<DWORD>((subkey.size() + 1) * sizeof(wchar_t));
  check(RegSetValueExW(settings, activeValue, 0, REG_SZ,
                       reinterpret_cast<const BYTE*>(subkey.c_str()), bytes),
        L"", "writing ActiveSetting");
}

}  // namespace

std::wstring settingsTreePath() {
  return std::wstring(parametersPath) + GuidText(settingsTreeGuid).c_str() + settingsSuffix;
}

SettingWrite writeSettingValues(HKEY setting, const RawValues& values) {
  for (std::size_t slot = 0; slot < values.size(); ++slot) {
    const std::wstring name = valueName(slot);
    const LSTATUS status =
        RegSetValueExW(setting, name.c_str(), 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>(&values[slot]), sizeof(float));
    if (status != ERROR_SUCCESS) return {status, name};
  }
  return {};
}

std::string SettingsTree::displayPath() {
  return "HKEY_LOCAL_MACHINE\\" + utf8(settingsTreePath());
}

bool SettingsTree::exists() { return static_cast<bool>(openTree()); }

std::wstring SettingsTree::activeName() { return nameOf(activeSubkey(openTree().get())); }

std::vector<std::wstring> SettingsTree::names() {
  std::vector<std::wstring> names;
  const RegistryKey settings = openTree();
  if (!settings) return names;
  const std::wstring active = activeSubkey(settings.get());
  for (const std::wstring& subkey : subkeys(settings.get()))
    if (!isFresh(subkey) || subkey == active) names.push_back(nameOf(subkey));
  std::ranges::sort(names, {}, [](const std::wstring& name) {
    wchar_t* end = nullptr;
    const unsigned long number = std::wcstoul(name.c_str(), &end, 10);
    return std::tuple(*end != L'\0', number, name);
  });
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::optional<StoredSetting> SettingsTree::read(const std::wstring& name) {
  const RegistryKey settings = openTree();
  if (!settings) return std::nullopt;
  const std::wstring active = activeSubkey(settings.get());
  const RegistryKey key =
      CRegistryUtils::openKey(settings.get(), (active == freshOf(name) ? active : name).c_str());
  if (!key) return std::nullopt;
  return readValues(key.get());
}

SettingsWriter::SettingsWriter() : mutex_(CreateMutexW(nullptr, FALSE, writerMutexName)) {
  // An abandoned mutex is of a program that was cut short: its work is finished below.
  if (!mutex_ || WaitForSingleObject(mutex_.get(), writerPatienceMs) == WAIT_TIMEOUT)
    throw CtlError(SettingsTree::displayPath() +
                   ": another vellumic-ctl is writing; wait for its end and try again");
  createdTree_ = !SettingsTree::exists();
  try {
    check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, settingsTreePath().c_str(), 0, nullptr, 0,
                          KEY_READ | KEY_WRITE | DELETE, nullptr, settings_.put(), nullptr),
          L"", "opening for writing");
    finishInterrupted();
  } catch (...) {
    ReleaseMutex(mutex_.get());
    throw;
  }
}

SettingsWriter::~SettingsWriter() { ReleaseMutex(mutex_.get()); }

void SettingsWriter::writeValues(const std::wstring& subkey, const RawValues& values) {
  RegistryKey key;
  check(RegCreateKeyExW(settings_.get(), subkey.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                        key.put(), nullptr),
        subkey, "creating the key");
  const SettingWrite written = writeSettingValues(key.get(), values);
  check(written.status, subkey, "writing " + utf8(written.value));
}

void SettingsWriter::finishInterrupted() {
  const std::wstring active = activeSubkey(settings_.get());
  if (!isFresh(active)) return;
  const RegistryKey fresh = CRegistryUtils::openKey(settings_.get(), active.c_str());
  if (!fresh) return;
  writeValues(nameOf(active), readValues(fresh.get()).values);
  writeActive(settings_.get(), nameOf(active));
}

void SettingsWriter::replace(const std::wstring& name, const RawValues& values) {
  const std::wstring fresh = freshOf(name);
  RegDeleteTreeW(settings_.get(), fresh.c_str());  // of an interrupted write; never the active one
  writeValues(fresh, values);
  writeActive(settings_.get(), fresh);
  writeValues(name, values);
  writeActive(settings_.get(), name);
}

void SettingsWriter::activate(const std::wstring& name) { writeActive(settings_.get(), name); }

void SettingsWriter::tidy() {
  const std::vector<std::wstring> all = subkeys(settings_.get());
  if (std::ranges::none_of(all, isFresh)) return;
  Sleep(readingMs);
  for (const std::wstring& subkey : all)
    if (isFresh(subkey)) RegDeleteTreeW(settings_.get(), subkey.c_str());
}

}  // namespace vellumic::tools
