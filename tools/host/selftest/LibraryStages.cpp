// The library itself: registered, its classes made, let go.
#include <cstdio>
#include <filesystem>
#include <optional>

#include "control/Handle.h"
#include "tools/ProgramPath.h"
#include "tools/ctl/TextConversion.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

constexpr wchar_t libraryName[] = L"VellumicAPO64c.dll";

// Where COM finds a class; nothing: nowhere.
std::optional<std::filesystem::path> registeredFile(const CLSID& id) {
  wchar_t file[1024] = {};
  DWORD size = sizeof file - sizeof file[0];
  const std::wstring path = L"CLSID\\" + wide(guidText(id)) + L"\\InprocServer32";
  const LSTATUS read =
      RegGetValueW(HKEY_CLASSES_ROOT, path.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, file, &size);
  if (read == ERROR_FILE_NOT_FOUND) return std::nullopt;
  return read == ERROR_SUCCESS ? file : L"a file that cannot be read";
}

// Registered there by somebody: not to be written over, and not to be removed.
bool registeredFor(const std::string& scope, const CLSID& id) {
  RegistryKey key;
  const std::wstring path = L"SOFTWARE\\Classes\\CLSID\\" + wide(guidText(id));
  return RegOpenKeyExW(scope == "user" ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, path.c_str(), 0,
                       KEY_READ, key.put()) != ERROR_FILE_NOT_FOUND;
}

// COM makes objects of it in this process. Elevated ones do not see a user's classes.
HRESULT creatable(const CLSID& id) {
  ComPtr<IUnknown> object;
  return CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IUnknown), object.putVoid());
}

// Of the library beside this program.
class Installer {
 public:
  Installer() {
    const auto file = programFolder() / libraryName;
    library_ = LoadLibraryW(file.c_str());
    if (library_ == nullptr)
      throw ComError(HRESULT_FROM_WIN32(GetLastError()), "VellumicAPO64c.dll beside vellumic-host");
  }
  ~Installer() { FreeLibrary(library_); }
  Installer(const Installer&) = delete;
  Installer& operator=(const Installer&) = delete;

  HRESULT install(bool on, const std::string& scope) const {
    const auto function = reinterpret_cast<HRESULT(STDAPICALLTYPE*)(BOOL, PCWSTR)>(
        reinterpret_cast<void*>(GetProcAddress(library_, "DllInstall")));
    return function == nullptr ? E_NOINTERFACE : function(on ? TRUE : FALSE, wide(scope).c_str());
  }

 private:
  HMODULE library_ = nullptr;
};

}  // namespace

void registerStage(StageLog& log, const StageOptions&) {
  const CLSID id = classIdOf("efx");
  bool needed = false;
  log.attempt("registered", [&] {
    const auto file = registeredFile(id);
    const HRESULT created = creatable(id);
    needed = !file || (created == REGDB_E_CLASSNOTREG && !registeredFor("machine", id));
    if (!file) return good("not yet; for the time of the test");
    if (needed) return good("for a user, which this program does not see");
    return SUCCEEDED(created) ? good("uses what is registered: " + utf8(file->filename().wstring()))
                              : explained(created, "what is registered");
  });
  for (const char* scope : {"user", "machine"}) {
    if (!needed) break;
    if (registeredFor(scope, id)) continue;
    const std::string undo = std::string("unregister ") + scope;
    log.attempt(std::string("register for this ") + scope, [&]() -> Outcome {
      const Installer installer;
      log.willChange(undo);
      const HRESULT result = installer.install(true, scope);
      needed = SUCCEEDED(result) && creatable(id) == REGDB_E_CLASSNOTREG;
      if (SUCCEEDED(result) && !needed) return good();
      if (SUCCEEDED(installer.install(false, scope))) log.changedBack(undo);
      if (FAILED(result)) return explained(result, "registering");
      return Outcome{Verdict::ok, "an elevated program does not see it; taken back",
                     REGDB_E_CLASSNOTREG};
    });
  }
}

void unregisterStage(StageLog& log, const std::string& scope) {
  log.call("registration for this " + scope + " taken back",
           [&] { return Installer().install(false, scope); });
}

void libraryStage(StageLog& log, const StageOptions& options) {
  const TestSite site(options.endpoint);
  for (const std::string name : classNames) {
    std::unique_ptr<CaptureEffect> effect;
    const auto made = [&] { return effect ? good() : untold("the class cannot be created"); };
    log.attempt(name + " created", [&] {
      effect = std::make_unique<CaptureEffect>(name);
      return good();
    });
    log.attempt(name + " initialized for discovery", [&] {
      if (!effect) return made();
      EffectSite where = site.at(modeDefault);
      where.discoveryOnly = true;
      CaptureEffect other(name);
      other.initialize(where);
      return good("effects: " + other.effects());
    });
    log.attempt(name + " initialized", [&] {
      if (effect) effect->initialize(site.at(modeSpeech));
      return made();
    });
    log.attempt(name + " effects", [&] {
      const KernelHandle changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
      return effect ? good(effect->effects(changed.get())) : made();
    });
    log.attempt(name + " locked and run", [&] {
      if (!effect) return made();
      effect->lock({.extensible = true, .channels = 2, .sampleRate = 48000, .mask = 3}, 480);
      std::vector<float> samples(960);
      const bool valid = effect->process(samples.data(), 480);
      effect->unlock();
      return valid ? good() : bad("did not process a period; send the report");
    });
  }
}

void unloadStage(StageLog& log, const StageOptions& options) {
  const TestSite site(options.endpoint);
  constexpr int rounds = 3;
  for (int round = 1; round <= rounds; ++round)
    log.attempt("round " + std::to_string(round), [&] {
      HRESULT busy = E_FAIL;
      bool named = false;
      {
        std::vector<std::unique_ptr<CaptureEffect>> effects;
        for (const char* name : classNames) effects.push_back(site.effect(name, modeDefault));
        const HMODULE library = GetModuleHandleW(libraryName);
        const auto canUnload = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
            reinterpret_cast<void*>(GetProcAddress(library, "DllCanUnloadNow")));
        named = library != nullptr && canUnload != nullptr;
        if (named) busy = canUnload();
      }
      CoFreeUnusedLibrariesEx(0, 0);
      return judgeUnload(named, busy, GetModuleHandleW(libraryName) == nullptr);
    });
}

}  // namespace vellumic::tools
