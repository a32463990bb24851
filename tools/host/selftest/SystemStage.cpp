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
#include "tools/ProgramPath.h"
#include "tools/ctl/AudioServices.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/EffectPlan.h"
#include "tools/ctl/EndpointChecks.h"
#include "tools/ctl/LibraryChecks.h"
#include "tools/ctl/LibraryFile.h"
#include "tools/ctl/Privileges.h"
#include "tools/ctl/TextConversion.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Stages.h"

extern "C" NTSTATUS NTAPI NtDeleteKey(HANDLE key);  // by its handle, whatever its permissions

namespace vellumic::tools {
namespace {

constexpr wchar_t scratchPath[] = L"SOFTWARE\\Vellumic-selftest";
constexpr REGSAM scratchRights = KEY_READ | KEY_WRITE | DELETE;

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

// By the right to restore, whatever its permissions. A key that is not there is made for a moment.
LSTATUS removeScratch() {
  RegistryKey key;
  const LSTATUS opened = openScratch(key, REG_OPTION_VOLATILE | REG_OPTION_BACKUP_RESTORE);
  if (opened != ERROR_SUCCESS) return opened;
  return static_cast<LSTATUS>(RtlNtStatusToDosError(NtDeleteKey(key.get())));
}

Outcome scratchStays(LSTATUS status) {
  return bad("HKEY_LOCAL_MACHINE\\" + utf8(scratchPath) + " stays (error " +
                 std::to_string(status) + "); remove it with regedit",
             HRESULT_FROM_WIN32(status));
}

// A key that lets nobody in is written by the right to restore, as an endpoint's is. gone: nothing
// of it is left.
Outcome writeClosedKey(bool& gone) {
  const BackupPrivileges privileges;
  gone = false;
  // One that a run ended by force has left lets nobody in either.
  if (const LSTATUS removed = removeScratch(); removed != ERROR_SUCCESS)
    return scratchStays(removed);
  SECURITY_ATTRIBUTES nobody{sizeof nobody, nullptr, FALSE};
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P", SDDL_REVISION_1,
                                                            &nobody.lpSecurityDescriptor, nullptr))
    return explained(HRESULT_FROM_WIN32(GetLastError()), "an empty access list");
  RegistryKey made, closed, open;
  const LSTATUS created =
      RegCreateKeyExW(HKEY_LOCAL_MACHINE, scratchPath, 0, nullptr, REG_OPTION_VOLATILE,
                      scratchRights, &nobody, made.put(), nullptr);
  LocalFree(nobody.lpSecurityDescriptor);
  gone = created != ERROR_SUCCESS;
  if (gone) return explained(HRESULT_FROM_WIN32(created), "a key to try on");
  const LSTATUS plain = openScratch(closed, 0);
  LSTATUS restoring = openScratch(open, REG_OPTION_BACKUP_RESTORE);
  const DWORD value = 1;
  if (restoring == ERROR_SUCCESS)
    restoring = RegSetValueExW(open.get(), L"Value", 0, REG_DWORD,
                               reinterpret_cast<const BYTE*>(&value), sizeof value);
  const ULONG removed = RtlNtStatusToDosError(NtDeleteKey(made.get()));
  gone = removed == ERROR_SUCCESS;
  if (!gone) return scratchStays(static_cast<LSTATUS>(removed));
  return judgeClosedKey(plain, restoring);
}

void closedKey(StageLog& log) {
  constexpr const char* undo = "key-back";
  log.willChange(undo);
  bool gone = true;
  log.attempt("REG_OPTION_BACKUP_RESTORE", [&] {
    try {
      return writeClosedKey(gone);
    } catch (const std::runtime_error& error) {  // the rights
      return untold(error.what());
    }
  });
  if (gone) log.changedBack(undo);
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
      std::error_code ignored;
      if (!std::filesystem::exists(file, ignored)) return untold("not beside this program");
      UINT line = 0;
      const HINF inf = SetupOpenInfFileW(file.c_str(), nullptr, INF_STYLE_WIN4, &line);
      if (inf == INVALID_HANDLE_VALUE)
        return explained(HRESULT_FROM_WIN32(GetLastError()), "line " + std::to_string(line));
      SetupCloseInfFile(inf);
      return good();
    });
  log.attempt("driver package installed", [] {
    for (const std::wstring& component : componentKeys()) {
      const std::wstring path = component + L"\\Classes\\CLSID\\" + classText(effectSlots[0]);
      if (CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, path.c_str())) return good();
    }
    return untold("it is not; pnputil /add-driver package\\*.inf /install, then run again");
  });
}

// What vellumic-ctl doctor says without listening. Its "not ok" is none of the self-test's: before
// registering and attaching it must be.
void doctorLinks(StageLog& log, const std::string& wanted) {
  Findings findings;
  checkLibrary(findings);
  try {
    checkEndpoint(findings, findMicrophone(wanted, DEVICE_STATEMASK_ALL));
  } catch (const CtlError& error) {
    findings.unknown("endpoint", error.what());
  }
  for (const Finding& finding : findings.all())
    log.tell("doctor: " + finding.link,
             finding.verdict == Verdict::ok ? good(finding.text) : untold(finding.text));
}

}  // namespace

void systemStage(StageLog& log, const StageOptions& options) {
  services(log);
  log.excuse(wineExcuse());
  signature(log);
  closedKey(log);
  headsetKeys(log);
  driverPackage(log);
  doctorLinks(log, options.endpoint);
}

void keyBackStage(StageLog& log) {
  log.attempt("key removed", [] {
    const BackupPrivileges privileges;
    const LSTATUS removed = removeScratch();
    return removed == ERROR_SUCCESS ? good() : scratchStays(removed);
  });
}

}  // namespace vellumic::tools
