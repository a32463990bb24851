// vellumic-ctl doctor: what it finds not ok, provoked.
#include <windows.h>

#include <sddl.h>
#include <softpub.h>

#include <functional>

#include "control/DeviceProperties.h"
#include "tests/support/ImportTable.h"
#include "tests/tools/AttachEndpoint.h"
#include "tools/ctl/AudioServices.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/DoctorCommand.h"
#include "tools/ctl/EndpointChecks.h"
#include "tools/ctl/LibraryChecks.h"

namespace vellumic::tools {
namespace {

using enum Verdict;

constexpr wchar_t audioKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Audio";
constexpr wchar_t versionKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// The service control, played by this program.
struct FakeService {
  DWORD state = SERVICE_RUNNING;  // 0: cannot be asked
  DWORD rights = 0;               // it was last opened with
};
std::map<std::wstring, FakeService> services;
std::vector<std::wstring> serviceCalls;
bool builderStays = false;  // when it is to stop

bool change(SC_HANDLE handle, DWORD right, DWORD state, const wchar_t* what) {
  auto& [name, service] = *reinterpret_cast<decltype(services)::value_type*>(handle);
  SetLastError(ERROR_ACCESS_DENIED);
  if ((service.rights & right) == 0) return false;
  serviceCalls.push_back(what + name);
  if (builderStays && serviceCalls.back() == L"stop AudioEndpointBuilder") return false;
  SetLastError(ERROR_SERVICE_ALREADY_RUNNING);
  if (state == SERVICE_START_PENDING && service.state != SERVICE_STOPPED) return false;
  service.state = state;
  return true;
}
void playServices(test::ImportTable& imports) {
  imports.put(
      "OpenServiceW", +[](SC_HANDLE, LPCWSTR name, DWORD rights) -> SC_HANDLE {
        const auto found = services.find(name);
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        if (found == services.end()) return nullptr;
        found->second.rights = rights;
        return reinterpret_cast<SC_HANDLE>(&*found);
      });
  imports.put(
      "QueryServiceStatus", +[](SC_HANDLE handle, SERVICE_STATUS* status) -> BOOL {
        DWORD& state = reinterpret_cast<decltype(services)::value_type*>(handle)->second.state;
        status->dwCurrentState = state;
        if (state == SERVICE_STOP_PENDING) state = SERVICE_STOPPED;
        if (state == SERVICE_START_PENDING) state = SERVICE_RUNNING;
        return state != 0;
      });
  imports.put(
      "ControlService", +[](SC_HANDLE service, DWORD control, SERVICE_STATUS*) -> BOOL {
        return change(service, SERVICE_STOP, SERVICE_STOP_PENDING, L"stop ") &&
               control == SERVICE_CONTROL_STOP;
      });
  imports.put(
      "StartServiceW", +[](SC_HANDLE service, DWORD, LPCWSTR*) -> BOOL {
        return change(service, SERVICE_START, SERVICE_START_PENDING, L"start ");
      });
  imports.put(
      "CloseServiceHandle", +[](SC_HANDLE) -> BOOL { return TRUE; });
}

// What the system says of a file's signature; Wine trusts every certificate.
LONG trust = 0;
LONG WINAPI verifyTrust(HWND, GUID*, WINTRUST_DATA* data) {
  return std::filesystem::exists(data->pFile->pcwszFilePath) ? trust : TRUST_E_SUBJECT_FORM_UNKNOWN;
}

// A machine on which everything is as it should be; the library has no signature and is asked for
// none.
class CtlDoctor : public test::ApoWorld {
 protected:
  CtlDoctor() {
    playServices(imports);
    imports.put("WinVerifyTrust", &verifyTrust);
    microphone.store.texts[14] = L"Microphone Array";
    writeFactorySettings();
    makeWhole();
  }
  ~CtlDoctor() override { std::filesystem::remove(file); }

  void makeWhole() {
    std::filesystem::remove(file);
    std::filesystem::copy_file(test::programFolder() / "VellumicAPO64c.dll", file);
    for (const wchar_t* key : {L"SOFTWARE\\Classes", L"SOFTWARE\\Microsoft\\Windows",
                               L"SOFTWARE\\Mirandor\\Vellumic\\Attached", L"SYSTEM", versionKey})
      registry.remove(key);
    services = {{L"AudioEndpointBuilder", {}}, {L"Audiosrv", {}}};
    serviceCalls.clear();
    builderStays = false;
    trust = TRUST_E_NOSIGNATURE;
    registerClasses(L"SOFTWARE\\Classes", L"SOFTWARE\\Classes");
    registry.write(audioKey, L"DisableProtectedAudioDG", 1);
    writeEffects(guid, effectValues("6=mfx m6=default 7=efx m7=default"));
    microphone.state = DEVICE_STATE_ACTIVE;
    microphone.volume.muted = false;
    microphone.volume.masterDb = 0.0F;
    client.mix = {WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 384000, 8, 32, 0};
    client.capture.packets = {{std::vector<float>(960)}, {std::vector<float>(960)}};
    for (std::string* failing : {&client.failing, &client.capture.failing}) failing->clear();
  }

  void registerClasses(const std::wstring& classes, const std::wstring& records) {
    for (const EffectSlot& slot : effectSlots) {
      registry.write(classes + L"\\CLSID\\" + classText(slot) + L"\\InprocServer32", L"",
                     file.wstring());
      registry.write(records + L"\\AudioEngine\\AudioProcessingObjects\\" + classText(slot),
                     L"FriendlyName", L"x");
    }
  }
  std::wstring classKey(int slot) {
    return L"SOFTWARE\\Classes\\CLSID\\" + classText(effectSlots[static_cast<std::size_t>(slot)]);
  }

  test::FakeClient& client = microphone.client;
  test::ImportTable imports{GetModuleHandleW(nullptr)};
  const std::wstring guid = L"{11111111-2222-3333-4444-555555555555}",
                     properties = effectPropertiesPath(guid);
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / "vellumic-doctor-test.dll";
};

TEST_F(CtlDoctor, FindsNothingOnASoundMachine) {
  const test::ServiceObjects board;
  const test::CaptureObject running = initialized(test::mfx);
  const Findings findings = examine("Array");
  EXPECT_EQ(findings.count(ok), 16U) << findings.table();

  makeWhole();
  microphone.volume.muted = true;
  const ToolRun outcome = ctl("doctor Array --json");
  expectRefusal(outcome, "1 of 16 links are not ok");
  expectParts(outcome.printed,
              {"{\"healthy\": false, \"links\": [{\"link\": \"registered\"",
               "\"link\": \"volume\", \"verdict\": \"not ok\", \"text\": \"muted;"});
  expectParts(ctl("doctor nobody").printed,
              {"endpoint      not ok          device nobody: no microphone has this"});
}

TEST_F(CtlDoctor, SaysWhatIsWrongAndWhatToDo) {
  const auto unregister = [this] { registry.remove(L"SOFTWARE\\Classes"); };
  const auto protect = [this] { registry.remove(audioKey); };
  const auto audiosrv = [&](DWORD state) {
    return [state] { services[L"Audiosrv"].state = state; };
  };
  const struct {
    const char* link;
    Verdict verdict;
    const char* part;
    std::function<void()> damage;
  } cases[] = {
      {"registered", notOk, "no class of Vellumic is known; run regsvr32", unregister},
      {"registered", notOk, "mfx missing", [&] { registry.remove(classKey(1)); }},
      {"registered", notOk, "kdmfx missing, or of",
       [&] { registry.write(classKey(2) + L"\\InprocServer32", L"", std::wstring(L"C:\\x.dll")); }},
      {"registered", ok, "by a driver package",
       [&] {
         unregister();
         const std::wstring package =
             L"SYSTEM\\CurrentControlSet\\Control\\Class\\"
             L"{5989FCE8-9CD0-467D-8A6A-5419E31529D4}\\0003";
         registerClasses(package + L"\\Classes", package);
       }},
      {"record", notOk, "no record of efx, mfx, kdmfx; run regsvr32",
       [&] { registry.remove(L"SOFTWARE\\Classes\\AudioEngine"); }},
      {"file", notOk, "does not exist; unpack", [&] { std::filesystem::remove(file); }},
      {"readable", notOk, "(LOCAL SERVICE) may not read it; move it",
       [&] {
         PSECURITY_DESCRIPTOR closed = nullptr;
         ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;SY)(A;;FA;;;BA)",
                                                              SDDL_REVISION_1, &closed, nullptr);
         EXPECT_TRUE(SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, closed));
         LocalFree(closed);
       }},
      {"signature", notOk, "none; sign it", protect},
      {"protection", notOk, "takes only libraries signed for it; on a machine for tests: reg add",
       protect},
      {"protection", unknown, "Windows 11 is reported to disregard",
       [&] { registry.write(versionKey, L"CurrentBuildNumber", std::wstring(L"22631")); }},
      {"signature", notOk, "by a certificate that this machine does not trust; import it",
       [] { trust = CERT_E_UNTRUSTEDROOT; }},
      {"signature", notOk, "changed after it was signed; unpack it anew",
       [] { trust = TRUST_E_BAD_DIGEST; }},
      {"services", unknown, "Audiosrv does not", [] { services.erase(L"Audiosrv"); }},
      {"services", notOk, "Audiosrv is stopped; run net start Audiosrv", audiosrv(SERVICE_STOPPED)},
      {"services", notOk, "is starting or stopping; wait a", audiosrv(SERVICE_START_PENDING)},
      {"endpoint", notOk, "unplugged; connect", [&] { microphone.state = DEVICE_STATE_UNPLUGGED; }},
      {"attached", notOk, "no effect of Vellumic; run", [&] { registry.remove(properties); }},
      {"attached", notOk, "was cut short; run vellumic-ctl attach or detach once more",
       [&] {
         registry.write(attachmentsPath + guid, L"State", std::wstring(L"attaching"));
         registry.write(attachmentsPath + guid + L"\\Before", L"x", 1);
         registry.write(attachmentsPath + guid + L"\\After", L"x", 2);
       }},
      {"enhancements", notOk, "switched off for this microphone; switch",
       [&] { registry.write(properties, effectValueName(endpointPropertySet, 5), 1); }},
      {"format", notOk, "needs 16000, 44100 or 48000 Hz; ch",
       [&] { client.mix.nSamplesPerSec = 96000; }},
      {"format", notOk, "needs 1, 2, 4 or 8 channels", [&] { client.mix.nChannels = 3; }},
      {"format", notOk, "needs 32-bit float", [&] { client.mix.wFormatTag = 1; }},
      {"mode", notOk, "mfx refuses every format in mode communications; attach",
       [&] { writeEffects(guid, effectValues("m6=communications")); }},
      {"mode", notOk, "mfx has no mode; attach", [&] { writeEffects(guid, effectValues("m6=#")); }},
      {"volume", notOk, "muted; unmute", [&] { microphone.volume.muted = true; }},
      {"volume", notOk, "at 0; raise", [&] { microphone.volume.masterDb = -96.0F; }},
      {"alive", notOk, "no effect has shown itself while", [] {}},
      {"calls", unknown, "2 packets, but no effect has shown itself", [] {}},
      {"calls", notOk, "no sound arrives from the microphone; check",
       [&] { client.capture.packets.clear(); }},
      {"calls", notOk, "0x80070005); allow desktop programs",
       [&] { client.failing = "initialize"; }},
      {"calls", notOk, "0x88890004); end programs that hold it",
       [&] { client.capture.failing = "packets"; }},
      // Each over the one before.
      {"setting", notOk, "engine.enabled is off",
       [&] { registry.writeSlot(L"1", Raw::masterEnable, 0.0F); }},
      {"setting", notOk, "Settings\\7 does not exist; run", [&] { registry.select(L"7"); }},
      {"setting", notOk, "none is stored",
       [&] { registry.remove(L"SOFTWARE\\Mirandor\\Vellumic\\Parameters"); }},
  };
  for (const auto& [link, verdict, part, damage] : cases) {
    SCOPED_TRACE(part);
    damage();
    Findings findings;
    checkLibrary(findings);
    checkServices(findings);
    checkSetting(findings);
    const Microphone device = findMicrophone("Array", DEVICE_STATEMASK_ALL);
    checkEndpoint(findings, device);
    checkVolume(findings, device);
    if (std::string_view("alive calls").find(link) != std::string_view::npos)
      checkSound(findings, device);
    const Finding* const finding = findings.find(link);
    ASSERT_NE(finding, nullptr);
    EXPECT_EQ(finding->verdict, verdict) << finding->text;
    expectParts(finding->text, {part});
    makeWhole();
  }
  EXPECT_EQ(client.started, 0);
}

TEST_F(CtlDoctor, ServicesAreStartedAnewInTheirOrder) {
  const std::vector<std::wstring> whole{L"stop Audiosrv", L"stop AudioEndpointBuilder",
                                        L"start AudioEndpointBuilder", L"start Audiosrv"};
  restartAudioServices();
  EXPECT_EQ(serviceCalls, whole);
  serviceCalls.clear();
  builderStays = true;  // what was stopped runs again
  EXPECT_THROW(restartAudioServices(), CtlError);
  EXPECT_EQ(serviceCalls, whole);
}

}  // namespace
}  // namespace vellumic::tools
