#include "apo/Registration.h"

#include <oleauto.h>

#include <cwchar>
#include <string>
#include <string_view>

#include "apo/RegistrationRecord.h"
#include "apo/RegistrationScript.h"
#include "apo/RegistryStatus.h"
#include "control/ComPtr.h"
#include "control/Handle.h"
#include "control/Module.h"

// Missing in the headers of MinGW-w64.
WINOLEAUTAPI RegisterTypeLibForUser(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder);
WINOLEAUTAPI UnRegisterTypeLibForUser(REFGUID id, WORD major, WORD minor, LCID lcid,
                                      SYSKIND system);

namespace vellumic {
namespace {

// Sends everything that goes to HKEY_CLASSES_ROOT to the user's own classes, for a scope.
class ClassesRoot {
 public:
  explicit ClassesRoot(InstallScope scope) noexcept {
    if (scope == InstallScope::machine) return;
    RegistryKey classes;
    status_ = RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Classes", 0, nullptr, 0,
                              KEY_ALL_ACCESS, nullptr, classes.put(), nullptr);
    if (status_ == ERROR_SUCCESS) status_ = RegOverridePredefKey(HKEY_CLASSES_ROOT, classes.get());
    redirected_ = status_ == ERROR_SUCCESS;
  }
  ~ClassesRoot() {
    if (redirected_) RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
  }
  ClassesRoot(const ClassesRoot&) = delete;
  ClassesRoot& operator=(const ClassesRoot&) = delete;
  [[nodiscard]] HRESULT result() const noexcept { return fromStatus(status_); }

 private:
  LSTATUS status_ = ERROR_SUCCESS;
  bool redirected_ = false;
};

std::wstring modulePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length =
        GetModuleFileNameW(Module::instance(), path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    path.resize(2 * path.size());
  }
}

HRESULT writeValue(const ScriptValue& value, const std::wstring& module) noexcept {
  RegistryKey key;
  LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, value.key, 0, nullptr, 0, KEY_WRITE, nullptr,
                                   key.put(), nullptr);
  if (status != ERROR_SUCCESS) return fromStatus(status);
  const bool isModule = std::wstring_view(value.text) == L"%MODULE%";
  const wchar_t* const text = isModule ? module.c_str() : value.text;
  status = RegSetValueExW(key.get(), value.name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                          static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t)));
  return fromStatus(status);
}

// What is not there needs no removing.
HRESULT removed(LSTATUS status) noexcept {
  return status == ERROR_FILE_NOT_FOUND ? S_OK : fromStatus(status);
}

HRESULT removeValues(const ScriptKey& script) noexcept {
  RegistryKey key;
  LSTATUS status =
      RegOpenKeyExW(HKEY_CLASSES_ROOT, script.key, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, key.put());
  if (status != ERROR_SUCCESS) return removed(status);
  for (const ScriptValue& value : script.values)
    if (value.key != nullptr)
      if (const HRESULT result = removed(RegDeleteValueW(key.get(), value.name)); FAILED(result))
        return result;
  DWORD keys = 0, values = 0;
  status = RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values,
                            nullptr, nullptr, nullptr, nullptr);
  if (status == ERROR_SUCCESS && keys == 0 && values == 0)
    status = RegDeleteKeyW(HKEY_CLASSES_ROOT, script.key);
  return removed(status);
}

HRESULT removeScript(const ScriptKey& script) noexcept {
  return script.ownership == Ownership::whole
             ? removed(RegDeleteTreeW(HKEY_CLASSES_ROOT, script.key))
             : removeValues(script);
}

HRESULT writeScript() {
  const std::wstring module = modulePath();
  for (const ScriptKey& script : registrationScript) {
    if (script.ownership == Ownership::whole)
      if (const HRESULT result = removeScript(script); FAILED(result)) return result;
    for (const ScriptValue& value : script.values)
      if (value.key != nullptr)
        if (const HRESULT result = writeValue(value, module); FAILED(result)) return result;
  }
  return S_OK;
}

// A limited user may not register types with the general functions: they write to the machine's
// classes, whatever HKEY_CLASSES_ROOT stands for.
HRESULT registerTypes(InstallScope scope) {
  std::wstring module = modulePath();
  ComPtr<ITypeLib> library;
  if (const HRESULT result = LoadTypeLib(module.c_str(), library.put()); FAILED(result))
    return result;
  const auto registerIn = scope == InstallScope::user ? RegisterTypeLibForUser : RegisterTypeLib;
  return registerIn(library.get(), module.data(), nullptr);
}

HRESULT unregisterTypes(InstallScope scope) {
  ComPtr<ITypeLib> library;
  if (const HRESULT result = LoadTypeLib(modulePath().c_str(), library.put()); FAILED(result))
    return result;
  TLIBATTR* attributes = nullptr;
  if (const HRESULT result = library->GetLibAttr(&attributes); FAILED(result)) return result;
  const TLIBATTR a = *attributes;
  library->ReleaseTLibAttr(attributes);
  const auto unregisterIn =
      scope == InstallScope::user ? UnRegisterTypeLibForUser : UnRegisterTypeLib;
  return unregisterIn(a.guid, a.wMajorVerNum, a.wMinorVerNum, a.lcid, a.syskind);
}

// The first failure of a row of steps that all run.
class FirstFailure {
 public:
  void take(HRESULT result) noexcept {
    if (SUCCEEDED(first_) && FAILED(result)) first_ = result;
  }
  [[nodiscard]] HRESULT result() const noexcept { return first_; }

 private:
  HRESULT first_ = S_OK;
};

}  // namespace

HRESULT registerLibrary(InstallScope scope) noexcept {
  try {
    const ClassesRoot root(scope);
    if (FAILED(root.result())) return root.result();
    if (const HRESULT result = writeScript(); FAILED(result)) return result;
    if (const HRESULT result = registerTypes(scope); FAILED(result)) return result;
    for (const APO_REG_PROPERTIES* record : registrationRecords())
      if (const HRESULT result = writeRecord(record); FAILED(result)) return result;
    return S_OK;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

HRESULT unregisterLibrary(InstallScope scope) noexcept {
  try {
    const ClassesRoot root(scope);
    if (FAILED(root.result())) return root.result();
    FirstFailure failure;
    const auto records = registrationRecords();
    for (auto record = records.rbegin(); record != records.rend(); ++record)
      failure.take(removeRecord(*record));
    failure.take(unregisterTypes(scope));
    for (auto script = registrationScript.rbegin(); script != registrationScript.rend(); ++script)
      failure.take(removeScript(*script));
    return failure.result();
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace vellumic
