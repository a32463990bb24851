// CVellumicAPOCaptureOnlyDllModule: the library's five exports and its class objects.
#include <windows.h>

#include <olectl.h>

#include <cwchar>

#include "apo/CaptureApo.h"
#include "apo/ClassFactory.h"
#include "apo/Registration.h"
#include "control/Module.h"
#include "control/SyncObject.h"

namespace vellumic {
namespace {

class CVellumicAPOCaptureOnlyDllModule {
 public:
  IClassFactory* find(REFCLSID id) noexcept {
    if (id == recordEFX.clsid) return &efx_;
    if (id == recordMFX.clsid) return &mfx_;
    if (id == recordKDMFX.clsid) return &kdmfx_;
    return nullptr;
  }
  CSyncObject& lock() noexcept { return lock_; }

 private:
  CSyncObject lock_;  // one registration at a time; made, and its failure told, at load
  ClassFactory<CVellumicAPOCaptureEFX> efx_;
  ClassFactory<CVellumicAPOCaptureMFX> mfx_;
  ClassFactory<CVellumicAPOCaptureKDMFX> kdmfx_;
};

CVellumicAPOCaptureOnlyDllModule module;

class RegistrationScope {
 public:
  RegistrationScope() noexcept { module.lock().lock(); }
  ~RegistrationScope() { module.lock().unlock(); }
  RegistrationScope(const RegistrationScope&) = delete;
  RegistrationScope& operator=(const RegistrationScope&) = delete;
};

}  // namespace
}  // namespace vellumic

using vellumic::InstallScope;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  // Threads' ends are told to the library: the runtime frees their thread-local data then.
  if (reason == DLL_PROCESS_ATTACH) vellumic::Module::setInstance(instance);
  return TRUE;
}

STDAPI DllCanUnloadNow() { return vellumic::Module::inUse() ? S_FALSE : S_OK; }

STDAPI DllGetClassObject(REFCLSID classId, REFIID id, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  IClassFactory* const factory = vellumic::module.find(classId);
  return factory != nullptr ? factory->QueryInterface(id, object) : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllRegisterServer() {
  const vellumic::RegistrationScope scope;
  return vellumic::registerLibrary(InstallScope::machine);
}

STDAPI DllUnregisterServer() {
  const vellumic::RegistrationScope scope;
  return vellumic::unregisterLibrary(InstallScope::machine);
}

// A line of "user" installs for the current user; any other line is ignored. An install that fails
// is taken back.
STDAPI DllInstall(BOOL install, PCWSTR line) {
  const vellumic::RegistrationScope lock;
  const bool user = line != nullptr && _wcsnicmp(line, L"user", 5) == 0;
  const InstallScope scope = user ? InstallScope::user : InstallScope::machine;
  if (install == FALSE) return vellumic::unregisterLibrary(scope);
  const HRESULT result = vellumic::registerLibrary(scope);
  if (FAILED(result)) vellumic::unregisterLibrary(scope);
  return result;
}
