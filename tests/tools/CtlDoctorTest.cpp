// vellumic-ctl doctor: every line that is not ok, provoked; and endpoints, which reads the same.
#include <windows.h>

#include <gtest/gtest.h>
#include <sddl.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>

#include "apo/ProcessingModes.h"
#include "control/BoundedText.h"
#include "control/DeviceProperties.h"
#include "tests/apo/ApoWorld.h"
#include "tests/control/ChildProcess.h"
#include "tests/support/ImportTable.h"
#include "tests/tools/CtlRun.h"
#include "tools/ProgramPath.h"
#include "tools/ctl/Attachment.h"
#include "tools/ctl/AudioServices.h"
#include "tools/ctl/DoctorCommand.h"
#include "tools/ctl/EndpointChecks.h"
#include "tools/ctl/LibraryChecks.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr wchar_t audioKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Audio";
constexpr wchar_t versionKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// A machine on which everything is as it should be; the library has no signature and is asked for
// none.
class CtlDoctor : public test::ApoWorld {
 protected:
  CtlDoctor() {
    microphone.store.texts[14] = L"Microphone Array";
    makeWhole();
  }
  ~CtlDoctor() override { std::filesystem::remove(file); }

  void makeWhole() {
    std::filesystem::remove(file);
    std::filesystem::copy_file(test::programFolder() / "VellumicAPO64c.dll", file);
    for (const wchar_t* key : {L"SOFTWARE", L"SYSTEM"}) registry.remove(key);
    writeFactorySettings();
    registerClasses(L"SOFTWARE\\Classes", L"SOFTWARE\\Classes");
    registry.write(audioKey, L"DisableProtectedAudioDG", 1);
    registry.copyReal(L"SOFTWARE\\Microsoft\\Cryptography");  // names the checks of signatures
    for (const ValueChange& change :
         attachChanges({}, {.slots = {&effectSlots[0], &effectSlots[1]}, .modes = {modeDefault}}))
      writeEffect(change.name, *change.after);
    microphone.state = DEVICE_STATE_ACTIVE;
    microphone.activates = true;
    microphone.volume.muted = false;
    microphone.volume.masterDb = 0.0F;
    microphone.client.failing.clear();
    microphone.client.mix = {WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 384000, 8, 32, 0};
    microphone.client.capture.broken = false;
    microphone.client.capture.packets = {{std::vector<float>(960)}, {std::vector<float>(960)}};
  }

  void registerClasses(const std::wstring& classes, const std::wstring& records) {
    for (const EffectSlot& slot : effectSlots) {
      registry.write(classes + L"\\CLSID\\" + classText(slot) + L"\\InprocServer32", L"",
                     file.wstring());
      registry.write(records + L"\\AudioEngine\\AudioProcessingObjects\\" + classText(slot),
                     L"FriendlyName", L"x");
    }
  }
  void writeEffect(const std::wstring& name, const RegistryValue& value) {
    registry.write(effectPropertiesPath(guid), name, value.type, value.data.data(),
                   value.data.size());
  }
  Microphone found() { return findMicrophone("Array", DEVICE_STATEMASK_ALL); }
  std::wstring classKey(int slot) {
    return L"SOFTWARE\\Classes\\CLSID\\" + classText(effectSlots[static_cast<std::size_t>(slot)]);
  }

  const std::wstring guid = L"{11111111-2222-3333-4444-555555555555}";
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / "vellumic-doctor-test.dll";
};

void expectVerdict(const Findings& findings, const std::string& link, Verdict verdict,
                   const std::string& part) {
  const Finding* const finding = findings.find(link);
  ASSERT_NE(finding, nullptr) << link;
  EXPECT_EQ(finding->verdict, verdict) << link << ": " << finding->text;
  EXPECT_NE(finding->text.find(part), std::string::npos) << link << ": " << finding->text;
}

TEST_F(CtlDoctor, FindsNothingOnASoundMachine) {
  const test::ServiceObjects board;
  const test::CaptureObject running = initialized(test::mfx);
  const Findings findings = examine("Array");
  EXPECT_EQ(findings.count(Verdict::notOk), 0U) << findings.table();
  for (const auto& [link, part] : std::initializer_list<std::pair<const char*, const char*>>{
           {"registered", "for the machine"},
           {"file", "64 bit"},
           {"attached", "efx, mfx"},
           {"format", "2 channels, 48000 Hz, 32-bit float"},
           {"mode", "default"},
           {"setting", "Settings\\1"},
           {"volume", "not muted"},
           {"alive", "CVellumicAPOCaptureMFX"},
           {"calls", "2 packets"}})
    expectVerdict(findings, link, Verdict::ok, part);
  EXPECT_EQ(findings.size(), 16U);

  makeWhole();
  microphone.volume.muted = true;
  const CtlOutcome outcome = captured({"doctor", "Array", "--json"});
  EXPECT_EQ(outcome.exitCode, 1);
  expectParts(outcome.complained, {"1 of 16 links are not ok"});
  expectParts(outcome.printed,
              {"{\"healthy\": false, \"links\": [{\"link\": \"registered\"",
               "\"link\": \"volume\", \"verdict\": \"not ok\", \"text\": \"muted;"});
  expectParts(captured({"doctor", "nobody"}).printed,
              {"endpoint      not ok          device nobody: no microphone has this"});
}

using enum Verdict;

struct Provocation {
  const char* link;
  Verdict verdict;
  const char* part;
  std::function<void()> provoke;
};

TEST_F(CtlDoctor, SaysWhatIsWrongWithTheLibrary) {
  const auto rewrite = [this](std::streamoff at, char value) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(at).put(value);
  };
  const auto unregister = [this] { registry.remove(L"SOFTWARE\\Classes"); };
  const auto protect = [this] { registry.remove(audioKey); };
  const auto userClass = [](const EffectSlot& slot) {
    return L"Software\\Classes\\CLSID\\" + classText(slot) + L"\\InprocServer32";
  };
  const std::vector<Provocation> provocations{
      {"registered", notOk, "no class of Vellumic is known; run regsvr32", unregister},
      {"registered", notOk, "mfx missing", [&] { registry.remove(classKey(1)); }},
      {"registered", notOk, "kdmfx missing, or of another file",
       [&] { registry.write(classKey(2) + L"\\InprocServer32", L"", std::wstring(L"C:\\x.dll")); }},
      {"registered", notOk, "for this user only, which the audio service does not see; run",
       [&] {
         unregister();
         const std::wstring name = file.wstring();
         for (const EffectSlot& slot : effectSlots)
           RegSetKeyValueW(HKEY_CURRENT_USER, userClass(slot).c_str(), L"", REG_SZ, name.c_str(),
                           static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t)));
       }},
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
      {"file", notOk, "not a program library", [&] { rewrite(0, 'x'); }},
      {"file", notOk, "is not of 64 bit",
       [&] {  // the low byte of the machine word
         std::ifstream stream(file, std::ios::binary);
         IMAGE_DOS_HEADER dos = {};
         stream.read(reinterpret_cast<char*>(&dos), sizeof dos);
         stream.close();
         rewrite(dos.e_lfanew + 4, 0x4C);
       }},
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
  };
  for (const Provocation& provocation : provocations) {
    provocation.provoke();
    Findings findings;
    checkLibrary(findings);
    expectVerdict(findings, provocation.link, provocation.verdict, provocation.part);
    makeWhole();
    for (const EffectSlot& slot : effectSlots)
      RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\Classes\\CLSID\\" + classText(slot)).c_str());
  }
}

TEST_F(CtlDoctor, TellsSignaturesApart) {
  const std::filesystem::path folder = VELLUMIC_SIGNED;
  const auto verdict = [&](Verdict expected, const char* part) {
    Findings findings;
    checkLibrary(findings);
    expectVerdict(findings, "signature", expected, part);
  };
  std::filesystem::copy_file(folder / "VellumicAPO64c.dll", file,
                             std::filesystem::copy_options::overwrite_existing);
  verdict(ok, "this machine trusts it");  // Wine trusts every certificate
  {
    test::ImportTable imports(GetModuleHandleW(nullptr));
    LONG(WINAPI * untrusted)
    (HWND, GUID*, void*) = [](HWND, GUID*, void*) -> LONG { return CERT_E_UNTRUSTEDROOT; };
    ASSERT_NE(imports.replace("WinVerifyTrust", reinterpret_cast<void*>(untrusted)), nullptr);
    verdict(notOk, "by a certificate that this machine does not trust; import it");
  }
  {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(100000).put('x');
  }
  verdict(notOk, "changed after it was signed; unpack it anew");
}

TEST_F(CtlDoctor, SaysWhatIsWrongWithTheMicrophone) {
  const auto value = [](unsigned number) { return effectValueName(effectPropertySet, number); };
  const std::wstring modes = effectValueName(effectModesSet, 6);
  const std::vector<Provocation> provocations{
      {"endpoint", notOk, "is unplugged; connect it",
       [&] { microphone.state = DEVICE_STATE_UNPLUGGED; }},
      {"attached", notOk, "no effect of Vellumic; run vellumic-ctl attach",
       [&] { registry.remove(effectPropertiesPath(guid)); }},
      {"attached", notOk, "was cut short; run vellumic-ctl attach or detach once more",
       [&] {
         registry.write(attachmentsPath + guid, L"State", std::wstring(L"attaching"));
         registry.write(attachmentsPath + guid + L"\\Before", L"x", 1);
         registry.write(attachmentsPath + guid + L"\\After", L"x", 2);
       }},
      {"attached", ok, "mfx in a chain",
       [&] {
         writeEffect(value(14), textsValue({L"{x}", classText(effectSlots[1])}));
       }},
      {"enhancements", notOk, "switched off for this microphone; switch",
       [&] {
         registry.write(effectPropertiesPath(guid), effectValueName(endpointPropertySet, 5), 1);
       }},
      {"format", notOk, "needs 16000, 44100 or 48000 Hz; choose another default format",
       [&] { microphone.client.mix.nSamplesPerSec = 96000; }},
      {"format", notOk, "needs 1, 2, 4 or 8 channels",
       [&] { microphone.client.mix.nChannels = 3; }},
      {"format", notOk, "needs 32-bit float", [&] { microphone.client.mix.wFormatTag = 1; }},
      {"format", unknown, "does not tell it", [&] { microphone.client.failing = "mix format"; }},
      {"mode", notOk, "mfx refuses every format in mode communications; attach again",
       [&] { writeEffect(modes, textsValue({GuidText(modeCommunications).c_str()})); }},
      {"mode", notOk, "mfx has no mode; attach", [&] { writeEffect(modes, textsValue({})); }},
      {"setting", notOk, "engine.enabled is off",
       [&] {
         registry.writeSetting(L"1", index(Raw::masterEnable) + 1, index(Raw::masterEnable) + 1,
                               [](unsigned) { return 0.0F; });
       }},
      {"setting", notOk, "Settings\\7 does not exist; run", [&] { registry.select(L"7"); }},
      {"setting", notOk, "none is stored",
       [&] { registry.remove(L"SOFTWARE\\Mirandor\\Vellumic\\Parameters"); }},
      {"volume", notOk, "muted; unmute", [&] { microphone.volume.muted = true; }},
      {"volume", notOk, "at 0; raise", [&] { microphone.volume.masterDb = -96.0F; }},
      {"volume", unknown, "cannot be read", [&] { microphone.activates = false; }},
  };
  for (const Provocation& provocation : provocations) {
    provocation.provoke();
    Findings findings;
    const Microphone device = found();
    checkEndpoint(findings, device);
    checkVolume(findings, device);
    checkSetting(findings);
    expectVerdict(findings, provocation.link, provocation.verdict, provocation.part);
    makeWhole();
  }
}

TEST_F(CtlDoctor, SaysWhenNothingIsHeard) {
  const test::ServiceObjects board;
  const std::vector<Provocation> provocations{
      {"alive", notOk, "no effect has shown itself while", [] {}},
      {"calls", unknown, "2 packets, but no effect has shown itself", [] {}},
      {"calls", notOk, "no sound arrives from the microphone; check",
       [&] { microphone.client.capture.packets.clear(); }},
      {"calls", notOk, "0x80070005); allow desktop programs the microphone",
       [&] { microphone.client.failing = "initialize"; }},
      {"calls", notOk, "0x88890004); end programs that hold it",
       [&] { microphone.client.capture.broken = true; }},
  };
  for (const Provocation& provocation : provocations) {
    provocation.provoke();
    Findings findings;
    checkSound(findings, found());
    expectVerdict(findings, provocation.link, provocation.verdict, provocation.part);
    makeWhole();
  }
  EXPECT_EQ(microphone.client.started, 0);
}

TEST_F(CtlDoctor, EndpointsTellWhatIsAcceptedAndAttached) {
  expectParts(captured({"endpoints"}).printed,
              {"Microphone Array  active", "format    2 channels, 48000 Hz, 32-bit float\n",
               "accepts   efx, mfx, kdmfx\n", "attached  efx in mode default\n",
               "attached  mfx in mode default\n"});
  microphone.client.mix.nSamplesPerSec = 32000;
  writeEffect(effectValueName(effectPropertySet, 15),
              textsValue({L"{x}", classText(effectSlots[0])}));
  expectParts(captured({"endpoints", "--json"}).printed,
              {"\"guid\": \"{11111111-2222-3333-4444-555555555555}\"", "\"state\": \"active\"",
               "\"rateHz\": 32000", "\"accepted\": []", "\"efx needs 16000, 44100 or 48000 Hz\"",
               "{\"class\": \"efx\", \"modes\": [\"default\"], \"chainedWith\": [\"{x}\"]}",
               "\"others\": [\"{x}\"]"});
}

// --- The audio services, played by this program under the real service control.

HANDLE stopService = nullptr;
SERVICE_STATUS_HANDLE serviceStatus = nullptr;

void report(DWORD state) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
  SetServiceStatus(serviceStatus, &status);
}
template <DWORD state>
void WINAPI serviceMain(DWORD, wchar_t** arguments) {
  stopService = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  serviceStatus = RegisterServiceCtrlHandlerW(arguments[0], [](DWORD control) {
    if (control == SERVICE_CONTROL_STOP) SetEvent(stopService);
  });
  report(state);
  WaitForSingleObject(stopService, 60000);
  report(SERVICE_STOPPED);
}
template <DWORD state>
int runService() {
  wchar_t name[] = L"";
  const SERVICE_TABLE_ENTRYW table[]{{name, &serviceMain<state>}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
const test::ChildMode service{"service", &runService<SERVICE_RUNNING>};
const test::ChildMode slowService{"slow-service", &runService<SERVICE_START_PENDING>};

class InstalledService {
 public:
  InstalledService(const wchar_t* name, const wchar_t* mode) : name_(name) {
    const std::wstring command = L"\"" + programPath().wstring() + L"\" --child " + mode;
    manager_ = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    // One of that name may still be on its way out.
    for (int i = 0; i < 500; ++i) {
      service_ = CreateServiceW(manager_, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE, command.c_str(),
                                nullptr, nullptr, nullptr, nullptr, nullptr);
      if (service_ != nullptr || GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE) break;
      Sleep(20);
    }
    EXPECT_NE(service_, nullptr) << GetLastError();
  }
  ~InstalledService() {
    SERVICE_STATUS status = {};
    ControlService(service_, SERVICE_CONTROL_STOP, &status);
    for (int i = 0; i < 100 && serviceState(name_) != ServiceState::stopped; ++i) Sleep(20);
    DeleteService(service_);
    CloseServiceHandle(service_);
    CloseServiceHandle(manager_);
  }
  InstalledService(const InstalledService&) = delete;
  InstalledService& operator=(const InstalledService&) = delete;
  void start() const { EXPECT_TRUE(StartServiceW(service_, 0, nullptr)) << GetLastError(); }
  [[nodiscard]] DWORD process() const {
    SERVICE_STATUS_PROCESS status = {};
    DWORD size = 0;
    QueryServiceStatusEx(service_, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                         sizeof status, &size);
    return status.dwProcessId;
  }

 private:
  const wchar_t* name_;
  SC_HANDLE manager_, service_ = nullptr;
};

TEST(CtlServices, AreSeenAndStartedAnew) {
  const auto verdictOf = [] {
    Findings findings;
    checkServices(findings);
    return *findings.find("services");
  };
  EXPECT_EQ(verdictOf().verdict, unknown);
  EXPECT_THROW(restartAudioServices(), CtlError);
  const InstalledService builder(audioServices[0], L"service");
  {
    const InstalledService engine(audioServices[1], L"service");
    EXPECT_EQ(verdictOf().text,
              "AudioEndpointBuilder is stopped; run net start Audiosrv as administrator");
    restartAudioServices();
    EXPECT_EQ(verdictOf().verdict, ok) << verdictOf().text;
    const DWORD before = engine.process(), builderBefore = builder.process();
    restartAudioServices();
    EXPECT_EQ(verdictOf().verdict, ok) << verdictOf().text;
    EXPECT_NE(engine.process(), before);
    EXPECT_NE(builder.process(), builderBefore);
  }
  const InstalledService engine(audioServices[1], L"slow-service");
  engine.start();
  EXPECT_EQ(verdictOf().text.substr(0, 40), "Audiosrv is starting or stopping; wait a");
  EXPECT_EQ(verdictOf().verdict, notOk);
}

}  // namespace
}  // namespace vellumic::tools
