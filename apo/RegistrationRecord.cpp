#include "apo/RegistrationRecord.h"

#include <array>
#include <cstdio>
#include <cwchar>
#include <utility>
#include <vector>

#include "apo/RegistryStatus.h"
#include "control/BoundedText.h"
#include "control/Handle.h"

namespace vellumic {
namespace {

constexpr wchar_t recordsPath[] = L"AudioEngine\\AudioProcessingObjects";
constexpr REGSAM createAccess = 0x20006;  // KEY_WRITE

std::vector<HANDLE>& watchers() {
  static std::vector<HANDLE> events;
  return events;
}

HRESULT setText(HKEY key, const wchar_t* name, const wchar_t* text) noexcept {
  constexpr std::size_t mostBytes = 512;  // with the terminator
  const std::size_t length = wcsnlen(text, mostBytes / sizeof(wchar_t));
  const std::size_t bytes = (length + 1) * sizeof(wchar_t);
  if (bytes > mostBytes) return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
  return fromStatus(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                                   static_cast<DWORD>(bytes)));
}

HRESULT setNumber(HKEY key, const wchar_t* name, UINT32 number) noexcept {
  return fromStatus(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                                   sizeof number));
}

HRESULT writeValues(HKEY key, const APO_REG_PROPERTIES& record) noexcept {
  const std::array<std::pair<const wchar_t*, const wchar_t*>, 2> texts{
      {{L"FriendlyName", record.szFriendlyName}, {L"Copyright", record.szCopyrightInfo}}};
  for (const auto& [name, text] : texts)
    if (const HRESULT result = setText(key, name, text); FAILED(result)) return result;

  const std::array<std::pair<const wchar_t*, UINT32>, 9> numbers{
      {{L"MajorVersion", record.u32MajorVersion},
       {L"MinorVersion", record.u32MinorVersion},
       {L"Flags", record.Flags},
       {L"MinInputConnections", record.u32MinInputConnections},
       {L"MaxInputConnections", record.u32MaxInputConnections},
       {L"MinOutputConnections", record.u32MinOutputConnections},
       {L"MaxOutputConnections", record.u32MaxOutputConnections},
       {L"MaxInstances", record.u32MaxInstances},
       {L"NumAPOInterfaces", record.u32NumAPOInterfaces}}};
  for (const auto& [name, number] : numbers)
    if (const HRESULT result = setNumber(key, name, number); FAILED(result)) return result;

  for (UINT32 i = 0; i < record.u32NumAPOInterfaces; ++i) {
    std::array<wchar_t, 32> name{};
    swprintf(name.data(), name.size(), L"APOInterface%u", i);
    const GuidText id(record.iidAPOInterfaceList[i]);
    if (const HRESULT result = setText(key, name.data(), id.c_str()); FAILED(result)) return result;
  }
  return S_OK;
}

}  // namespace

HRESULT writeRecord(const APO_REG_PROPERTIES* record) noexcept {
  if (record == nullptr) return E_POINTER;
  RegistryKey records;
  LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, recordsPath, 0, nullptr, 0, createAccess,
                                   nullptr, records.put(), nullptr);
  if (status != ERROR_SUCCESS) return fromStatus(status);
  const GuidText id(record->clsid);
  if (*id.c_str() == L'\0') return S_OK;

  RegDeleteKeyW(records.get(), id.c_str());  // an old record, if there is one
  RegistryKey key;
  status = RegCreateKeyExW(records.get(), id.c_str(), 0, nullptr, 0, createAccess, nullptr,
                           key.put(), nullptr);
  if (status != ERROR_SUCCESS) return fromStatus(status);
  if (const HRESULT result = writeValues(key.get(), *record); FAILED(result)) return result;
  for (const HANDLE event : watchers()) SetEvent(event);
  return S_OK;
}

HRESULT removeRecord(const APO_REG_PROPERTIES* record) noexcept {
  if (record == nullptr) return E_POINTER;
  RegistryKey records;
  LSTATUS status = RegOpenKeyExW(HKEY_CLASSES_ROOT, recordsPath, 0, createAccess, records.put());
  if (status != ERROR_SUCCESS) return fromStatus(status);
  const GuidText id(record->clsid);
  status = RegDeleteKeyW(records.get(), id.c_str());
  return fromStatus(status);
}

void addRecordWatcher(HANDLE event) { watchers().push_back(event); }

}  // namespace vellumic
