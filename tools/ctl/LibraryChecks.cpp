#include "tools/ctl/LibraryChecks.h"

#include <windows.h>

#include <softpub.h>
#include <wintrust.h>

#include <array>
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <vector>

#include "apo/EffectSlots.h"
#include "control/RegistryUtils.h"
#include "tools/ctl/EffectPlan.h"
#include "tools/ctl/LibraryFile.h"
#include "tools/ctl/RegistryValues.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr char registerIt[] = "run regsvr32 VellumicAPO64c.dll as administrator";
constexpr wchar_t componentClassPath[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{5989FCE8-9CD0-467D-8A6A-5419E31529D4}";
constexpr wchar_t audioPath[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Audio";
constexpr wchar_t versionPath[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
constexpr wchar_t controlPath[] = L"SYSTEM\\CurrentControlSet\\Control";
constexpr unsigned long windows11 = 22000;  // its first build

std::wstring textAt(HKEY root, const std::wstring& path, const wchar_t* name) {
  const RegistryKey key = CRegistryUtils::openKey(root, path.c_str());
  if (!key) return {};
  const RegistryValues values = readValues(key.get(), utf8(path));
  const auto found = values.find(name);
  const auto texts = found == values.end() ? std::vector<std::wstring>{} : textsOf(found->second);
  return texts.empty() ? L"" : texts.front();
}

// Where classes may be registered: the root of a Classes tree, and of the effects' records.
struct Scope {
  const char* name;
  HKEY root;
  std::wstring classes, records;
};

std::vector<Scope> scopes() {
  std::vector<Scope> all{
      {"for the machine", HKEY_LOCAL_MACHINE, L"SOFTWARE\\Classes", L"SOFTWARE\\Classes"}};
  for (const std::wstring& path : componentKeys())
    all.push_back({"by a driver package", HKEY_LOCAL_MACHINE, path + L"\\Classes", path});
  all.push_back({"for this user", HKEY_CURRENT_USER, L"Software\\Classes", L"Software\\Classes"});
  return all;
}

std::wstring libraryOf(const Scope& scope, const EffectSlot& slot) {
  return textAt(scope.root, scope.classes + L"\\CLSID\\" + classText(slot) + L"\\InprocServer32",
                L"");
}

struct Registered {
  Scope scope;
  std::wstring file;
  std::string missing;  // classes that are not there, or elsewhere
};

// The first scope that knows any class: in the order in which the audio service would look.
std::optional<Registered> findRegistered() {
  for (const Scope& scope : scopes()) {
    Registered found{.scope = scope, .file = {}, .missing = {}};
    for (const EffectSlot& slot : effectSlots) {
      const std::wstring file = libraryOf(scope, slot);
      if (found.file.empty()) found.file = file;
      if (file.empty() || !sameText(file, found.file))
        found.missing += (found.missing.empty() ? "" : ", ") + std::string(slot.name);
    }
    if (!found.file.empty()) return found;
  }
  return std::nullopt;
}

void checkRegistration(Findings& findings, const Registered& registered) {
  const std::string file = utf8(registered.file);
  if (!registered.missing.empty())
    findings.notOk("registered", registered.missing + " missing, or of another file than " + file,
                   registerIt);
  else if (registered.scope.root == HKEY_CURRENT_USER)
    findings.notOk("registered", "for this user only, which the audio service does not see",
                   registerIt);
  else
    findings.ok("registered", std::string(registered.scope.name) + ": " + file);

  std::string missing;
  for (const EffectSlot& slot : effectSlots) {
    const std::wstring path =
        registered.scope.records + L"\\AudioEngine\\AudioProcessingObjects\\" + classText(slot);
    if (textAt(registered.scope.root, path, L"FriendlyName").empty())
      missing += (missing.empty() ? "" : ", ") + std::string(slot.name);
  }
  if (missing.empty())
    findings.ok("record", "the audio engine knows the three effects");
  else
    findings.notOk("record", "the audio engine has no record of " + missing, registerIt);
}

void checkFile(Findings& findings, const std::wstring& file) {
  const std::string shown = utf8(file);
  if (!std::filesystem::exists(file)) {
    findings.notOk("file", shown + " does not exist", "unpack it there, or register it anew");
    findings.unknown("readable", "there is no file");
    return;
  }
  const auto machine = machineOf(file);
  if (!machine)
    findings.notOk("file", shown + " is not a program library", "unpack it anew");
  else if (*machine != IMAGE_FILE_MACHINE_AMD64)
    findings.notOk("file", shown + " is not of 64 bit", "register the 64-bit library");
  else
    findings.ok("file", shown + " is there, 64 bit");
  const auto readable = audioServiceMayRead(file);
  if (!readable)
    findings.unknown("readable", "its permissions cannot be read");
  else if (*readable)
    findings.ok("readable", "the audio service may read it");
  else
    findings.notOk("readable", "the audio service (LOCAL SERVICE) may not read it",
                   "move it to a folder such as C:\\Vellumic, or icacls \"" + shown +
                       "\" /grant *S-1-5-19:RX");
}

// How far the audio process insists on signatures.
struct Protection {
  bool off = false;          // switched off, where Windows heeds that
  bool disregarded = false;  // switched off where it may not heed it
  bool testSigning = false;
};

Protection readProtection() {
  const RegistryKey audio = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, audioPath);
  const bool off =
      audio && CRegistryUtils::readDword(audio.get(), L"DisableProtectedAudioDG") == 1U;
  const unsigned long build = std::wcstoul(
      textAt(HKEY_LOCAL_MACHINE, versionPath, L"CurrentBuildNumber").c_str(), nullptr, 10);
  const std::wstring options = textAt(HKEY_LOCAL_MACHINE, controlPath, L"SystemStartOptions");
  return {.off = off && build < windows11,
          .disregarded = off && build >= windows11,
          .testSigning = options.find(L"TESTSIGNING") != std::wstring::npos};
}

void checkSignature(Findings& findings, const Registered& registered,
                    const Protection& protection) {
  const LONG result = signatureOf(registered.file);
  const bool inPackage = registered.scope.records != registered.scope.classes;
  switch (static_cast<DWORD>(result)) {
    case 0:
      return findings.ok("signature", "this machine trusts it");
    case static_cast<DWORD>(TRUST_E_NOSIGNATURE):
    case static_cast<DWORD>(TRUST_E_SUBJECT_FORM_UNKNOWN):
    case static_cast<DWORD>(TRUST_E_PROVIDER_UNKNOWN):
      if (inPackage)
        return findings.unknown("signature", "none in the file; the package's catalogue may do");
      if (protection.off) return findings.ok("signature", "none, and none is asked for");
      return findings.notOk("signature", "none", "sign it, or see protection");
    case static_cast<DWORD>(TRUST_E_BAD_DIGEST):
      return findings.notOk("signature", "the file was changed after it was signed",
                            "unpack it anew");
    case static_cast<DWORD>(CERT_E_UNTRUSTEDROOT):
    case static_cast<DWORD>(CERT_E_CHAINING):
      return findings.notOk("signature", "by a certificate that this machine does not trust",
                            "import it to the machine's trusted roots and publishers");
    default: {
      std::array<char, 16> code{};
      std::snprintf(code.data(), code.size(), "0x%08lX", static_cast<unsigned long>(result));
      findings.unknown("signature", std::string("the system answers ") + code.data());
    }
  }
}

void checkProtection(Findings& findings, const Protection& protection) {
  const Finding* const signature = findings.find("signature");
  if (protection.off)
    findings.ok("protection", "of the audio process is switched off: it takes any library");
  else if (protection.disregarded)
    findings.unknown("protection",
                     "of the audio process is switched off, but Windows 11 is reported to "
                     "disregard that; see alive");
  else if (signature != nullptr && signature->verdict == Verdict::notOk)
    findings.notOk("protection", "the audio process takes only libraries signed for it",
                   "on a machine for tests: reg add HKLM\\" + utf8(audioPath) +
                       " /v DisableProtectedAudioDG /t REG_DWORD /d 1, and restart");
  else
    findings.unknown("protection",
                     std::string(protection.testSigning ? "test signing is on; " : "") +
                         "whether the audio process takes this signature shows "
                         "only when it loads the library; see alive");
}

}  // namespace

std::vector<std::wstring> componentKeys() {
  std::vector<std::wstring> all;
  const RegistryKey components = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, componentClassPath);
  for (DWORD i = 0; components; ++i) {
    std::array<wchar_t, 256> name{};
    DWORD length = name.size();
    if (RegEnumKeyExW(components.get(), i, name.data(), &length, nullptr, nullptr, nullptr,
                      nullptr) != ERROR_SUCCESS)
      break;
    all.push_back(std::wstring(componentClassPath) + L"\\" + name.data());
  }
  return all;
}

void checkLibrary(Findings& findings) {
  const auto registered = findRegistered();
  if (!registered) {
    findings.notOk("registered", "no class of Vellumic is known", registerIt);
    for (const char* link : {"record", "file", "readable", "signature", "protection"})
      findings.unknown(link, "nothing is registered");
    return;
  }
  checkRegistration(findings, *registered);
  checkFile(findings, registered->file);
  if (!std::filesystem::exists(registered->file)) {
    findings.unknown("signature", "there is no file");
    findings.unknown("protection", "there is no file");
    return;
  }
  const Protection protection = readProtection();
  checkSignature(findings, *registered, protection);
  checkProtection(findings, protection);
}

}  // namespace vellumic::tools
