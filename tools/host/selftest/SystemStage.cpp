// What else of the system the product leans on and Wine has only in part.
#include <windows.h>

#include <sddl.h>
#include <setupapi.h>
#include <winternl.h>

#include <array>
#include <filesystem>

#include "apo/EffectSlots.h"
#include "control/Names.h"
#include "control/RegistryUtils.h"
#include "tools/ctl/AudioServices.h"
#include "tools/ctl/EffectPlan.h"
#include "tools/ctl/LibraryFile.h"
#include "tools/ctl/Privileges.h"
#include "tools/ctl/TextConversion.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Stages.h"

extern "C" NTSTATUS NTAPI NtDeleteKey(HANDLE key);  // by its handle, whatever its permissions

namespace vellumic::tools {
namespace {

constexpr wchar_t scratchPath[] = L"SOFTWARE\\Vellumic-selftest";
constexpr wchar_t componentClassPath[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{5989FCE8-9CD0-467D-8A6A-5419E31529D4}";
constexpr REGSAM scratchRights = KEY_READ | KEY_WRITE | DELETE;

std::filesystem::path programFolder() {
  wchar_t program[1024] = {};
  GetModuleFileNameW(nullptr, program, 1024);
  return std::filesystem::path(program).parent_path();
}

void services(StageLog& log) {
  for (const wchar_t* service : audioServices)
    log.attempt("service " + utf8(service), [&] { return judgeService(serviceState(service)); });
}

void signature(StageLog& log) {
  log.attempt("WinVerifyTrust", [] {
    return judgeSignature(signatureOf((programFolder() / L"VellumicAPO64c.dll").wstring()));
  });
}

LSTATUS openScratch(RegistryKey& key, DWORD options) {
  return RegCreateKeyExW(HKEY_LOCAL_MACHINE, scratchPath, 0, nullptr, options, scratchRights,
                         nullptr, key.put(), nullptr);
}

// A key that lets nobody in is written by the right to restore, as an endpoint's is.
Outcome writeClosedKey() {
  const BackupPrivileges privileges;
  SECURITY_ATTRIBUTES nobody{sizeof nobody, nullptr, FALSE};
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P", SDDL_REVISION_1,
                                                            &nobody.lpSecurityDescriptor, nullptr))
    return explained(HRESULT_FROM_WIN32(GetLastError()), "an empty access list");
  RegistryKey made, closed, open;
  const LSTATUS created = RegCreateKeyExW(HKEY_LOCAL_MACHINE, scratchPath, 0, nullptr, 0,
                                          scratchRights, &nobody, made.put(), nullptr);
  LocalFree(nobody.lpSecurityDescriptor);
  if (created != ERROR_SUCCESS) return explained(HRESULT_FROM_WIN32(created), "a key to try on");
  const LSTATUS plain = openScratch(closed, 0);
  LSTATUS restoring = openScratch(open, REG_OPTION_BACKUP_RESTORE);
  const DWORD value = 1;
  if (restoring == ERROR_SUCCESS)
    restoring = RegSetValueExW(open.get(), L"Value", 0, REG_DWORD,
                               reinterpret_cast<const BYTE*>(&value), sizeof value);
  NtDeleteKey(made.get());
  return judgeClosedKey(plain, restoring);
}

void closedKey(StageLog& log) {
  constexpr const char* undo = "key-back";
  log.willChange(undo);
  log.attempt("REG_OPTION_BACKUP_RESTORE", [] {
    try {
      return writeClosedKey();
    } catch (const std::runtime_error& error) {  // the rights
      return untold(error.what());
    }
  });
  log.changedBack(undo);
}

void headsetKeys(StageLog& log) {
  log.attempt("Driver and HeadsetStatus of the audio class key", [] {
    const RegistryKey devices = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, audioClassPath);
    if (!devices) return untold("there is no such key");
    int found = 0, drivers = 0, headsets = 0;
    std::array<wchar_t, 255> name{};
    for (DWORD length = name.size();
         RegEnumKeyExW(devices.get(), static_cast<DWORD>(found), name.data(), &length, nullptr,
                       nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         length = name.size(), ++found) {
      const RegistryKey device = CRegistryUtils::openKey(devices.get(), name.data());
      if (!device) continue;
      drivers += RegQueryValueExW(device.get(), L"Driver", nullptr, nullptr, nullptr, nullptr) ==
                         ERROR_SUCCESS
                     ? 1
                     : 0;
      headsets += CRegistryUtils::openKey(device.get(), L"HeadsetStatus") ? 1 : 0;
    }
    const std::string text = std::to_string(found) + " devices, Driver at " +
                             std::to_string(drivers) + ", HeadsetStatus at " +
                             std::to_string(headsets);
    return drivers + headsets > 0 ? good(text) : untold(text);
  });
}

void driverPackage(StageLog& log) {
  for (const wchar_t* name : {L"VellumicAPO.inf", L"VellumicExtension.inf"})
    log.attempt("package\\" + utf8(name) + " read by the setup functions", [&] {
      const auto file = programFolder() / L"package" / name;
      if (!std::filesystem::exists(file)) return untold("not beside this program");
      UINT line = 0;
      const HINF inf = SetupOpenInfFileW(file.c_str(), nullptr, INF_STYLE_WIN4, &line);
      if (inf == INVALID_HANDLE_VALUE)
        return explained(HRESULT_FROM_WIN32(GetLastError()), "line " + std::to_string(line));
      SetupCloseInfFile(inf);
      return good();
    });
  log.attempt("driver package installed", [] {
    const RegistryKey components = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, componentClassPath);
    std::array<wchar_t, 255> name{};
    DWORD length = name.size();
    for (DWORD i = 0;
         components && RegEnumKeyExW(components.get(), i, name.data(), &length, nullptr, nullptr,
                                     nullptr, nullptr) == ERROR_SUCCESS;
         ++i, length = name.size()) {
      const std::wstring path =
          std::wstring(name.data()) + L"\\Classes\\CLSID\\" + classText(effectSlots[0]);
      if (CRegistryUtils::openKey(components.get(), path.c_str())) return good();
    }
    return untold("it is not; pnputil /add-driver package\\*.inf /install, then run again");
  });
}

}  // namespace

void systemStage(StageLog& log, const StageOptions&) {
  services(log);
  log.excuse(wineExcuse());
  signature(log);
  closedKey(log);
  headsetKeys(log);
  driverPackage(log);
}

void keyBackStage(StageLog& log) {
  log.attempt("key removed", [] {
    const BackupPrivileges privileges;
    RegistryKey key;
    if (openScratch(key, REG_OPTION_BACKUP_RESTORE) != ERROR_SUCCESS)
      return bad("HKEY_LOCAL_MACHINE\\" + utf8(scratchPath) + " stays; remove it with regedit");
    NtDeleteKey(key.get());
    return good();
  });
}

}  // namespace vellumic::tools
