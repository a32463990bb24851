// What registration writes, and that it leaves the machine as it was.
#include <objbase.h>

#include <map>
#include <vector>

#include "apo/RegistrationRecord.h"
#include "control/BoundedText.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {
namespace {

constexpr HRESULT notFound = static_cast<HRESULT>(0x80070002);
constexpr HRESULT tooLong = static_cast<HRESULT>(0x80070057);
const std::wstring recordsPath = L"AudioEngine\\AudioProcessingObjects";

// Every key and value below a key, by path.
using Snapshot = std::map<std::wstring, std::vector<BYTE>>;
void take(HKEY key, const std::wstring& path, Snapshot& snapshot) {
  snapshot[path];
  std::array<wchar_t, 512> name{};
  std::vector<BYTE> data(65536);
  for (DWORD i = 0;; ++i) {
    auto length = static_cast<DWORD>(name.size());
    auto size = static_cast<DWORD>(data.size());
    if (RegEnumValueW(key, i, name.data(), &length, nullptr, nullptr, data.data(), &size) !=
        ERROR_SUCCESS)
      break;
    snapshot[path + L"\\@" + name.data()].assign(data.begin(), data.begin() + size);
  }
  for (DWORD i = 0;; ++i) {
    auto length = static_cast<DWORD>(name.size());
    if (RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS)
      break;
    RegistryKey child;
    if (RegOpenKeyExW(key, name.data(), 0, KEY_READ, child.put()) == ERROR_SUCCESS)
      take(child.get(), path + L"\\" + name.data(), snapshot);
  }
}
Snapshot snapshotOf(HKEY root, const wchar_t* path) {
  Snapshot snapshot;
  RegistryKey key;
  if (RegOpenKeyExW(root, path, 0, KEY_READ, key.put()) == ERROR_SUCCESS)
    take(key.get(), L"", snapshot);
  return snapshot;
}
// But for the parents that stay: of the records, and of a user's first classes.
Snapshot classesSnapshot(HKEY root = HKEY_LOCAL_MACHINE) {
  Snapshot snapshot = snapshotOf(root, L"Software\\Classes");
  for (const std::wstring& parent :
       {std::wstring(), L"\\" + recordsPath, std::wstring(L"\\AudioEngine"),
        std::wstring(L"\\AppID"), std::wstring(L"\\CLSID"), std::wstring(L"\\Typelib")})
    snapshot.erase(parent);
  return snapshot;
}

std::wstring text(const Snapshot& snapshot, const std::wstring& path) {
  const auto found = snapshot.find(path);
  if (found == snapshot.end()) return L"(missing)";
  return reinterpret_cast<const wchar_t*>(found->second.data());
}
DWORD number(const Snapshot& snapshot, const std::wstring& path) {
  const auto found = snapshot.find(path);
  if (found == snapshot.end() || found->second.size() != 4) return 0xBAD;
  return *reinterpret_cast<const DWORD*>(found->second.data());
}

std::wstring libraryPath() { return (programFolder() / L"VellumicAPO64c.dll").wstring(); }

DWORD regsvr32(const std::wstring& options) {
  std::wstring command = L"regsvr32.exe /s " + options + L" \"" + libraryPath() + L"\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION information{};
  EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &startup, &information));
  const KernelHandle process(information.hProcess), thread(information.hThread);
  WaitForSingleObject(process.get(), 60000);
  DWORD code = 99;
  GetExitCodeProcess(process.get(), &code);
  return code;
}

std::wstring typeLibraryPath(HKEY root) {  // as registered
  std::array<wchar_t, 1024> path{L"(missing)"};
  auto bytes = static_cast<DWORD>(sizeof path);
  RegGetValueW(root,
               L"Software\\Classes\\TypeLib\\{F9EEAA9C-622F-4EF9-8658-384DA91E1FCF}\\3.12\\0"
               L"\\win64",
               nullptr, RRF_RT_REG_SZ, nullptr, path.data(), &bytes);
  return path.data();
}

void expectRegistered(HKEY root) {
  const Snapshot classes = classesSnapshot(root);
  const std::wstring dll = libraryPath();
  EXPECT_EQ(_wcsicmp(typeLibraryPath(root).c_str(), dll.c_str()), 0) << "type library";
  EXPECT_EQ(text(classes, L"\\AppID\\VellumicAPO64c.dll\\@AppID"),
            L"{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}");
  EXPECT_EQ(text(classes, L"\\AppID\\{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}\\@"),
            L"VellumicAPO64c");
  for (const ClassCase& which : classCases) {
    const std::wstring id = GuidText(which.id).c_str();
    const std::wstring name = L"VellumicAPOCapture" + std::filesystem::path(which.name).wstring();
    const std::wstring server = L"\\CLSID\\" + id + L"\\InprocServer32";
    EXPECT_EQ(text(classes, L"\\CLSID\\" + id + L"\\@"), name + L" Class");
    EXPECT_EQ(_wcsicmp(text(classes, server + L"\\@").c_str(), dll.c_str()), 0);
    EXPECT_EQ(text(classes, server + L"\\@ThreadingModel"), L"Both");
    const std::wstring record = L"\\" + recordsPath + L"\\" + id + L"\\@";
    EXPECT_EQ(text(classes, record + L"FriendlyName"), L"C" + name);
    EXPECT_NE(text(classes, record + L"Copyright"), L"(missing)");
    const std::pair<const wchar_t*, DWORD> numbers[] = {
        {L"MajorVersion", 3},         {L"MinorVersion", 18},         {L"Flags", which.flags},
        {L"MinInputConnections", 1},  {L"MaxInputConnections", 1},   {L"MinOutputConnections", 1},
        {L"MaxOutputConnections", 1}, {L"MaxInstances", 0xffffffff}, {L"NumAPOInterfaces", 1}};
    for (const auto& [value, expected] : numbers)
      EXPECT_EQ(number(classes, record + value), expected) << which.name;
    EXPECT_EQ(text(classes, record + L"APOInterface0"), GuidText(which.own).c_str());
  }
}

TEST(Registration, RegsvrAndBackLeavesNothing) {
  regsvr32(L"/u");  // whatever an earlier run left
  const Snapshot before = classesSnapshot();
  ASSERT_EQ(regsvr32(L""), 0U);
  expectRegistered(HKEY_LOCAL_MACHINE);
  {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    for (const ClassCase& which : classCases) {
      ComPtr<IAudioProcessingObject> object;
      ASSERT_EQ(CoCreateInstance(which.id, nullptr, CLSCTX_INPROC_SERVER,
                                 __uuidof(IAudioProcessingObject), object.putVoid()),
                S_OK);
      EXPECT_TRUE(as<IUnknown>(object.get(), which.own));
    }
    CoFreeUnusedLibrariesEx(0, 0);
    CoUninitialize();
  }
  EXPECT_EQ(regsvr32(L"/u"), 0U);
  EXPECT_EQ(classesSnapshot(), before);
  EXPECT_EQ(exported<HRESULT WINAPI()>("DllUnregisterServer")(), notFound);  // nothing there
}

HRESULT WINAPI denied() { return TYPE_E_REGISTRYACCESS; }

// A user's registration asks for no right on the machine: there the general functions for type
// libraries write to the machine's classes, which a limited user may not.
TEST(Registration, ForOneUser) {
  ImportTable imports(library());
  for (const char* function : {"RegisterTypeLib", "UnRegisterTypeLib"})
    ASSERT_NE(imports.replace(function, reinterpret_cast<void*>(&denied)), nullptr);
  const auto install = exported<HRESULT WINAPI(BOOL, PCWSTR)>("DllInstall");
  const Snapshot machine = classesSnapshot(), before = classesSnapshot(HKEY_CURRENT_USER);
  ASSERT_EQ(install(TRUE, L"user"), S_OK);
  expectRegistered(HKEY_CURRENT_USER);
  EXPECT_EQ(classesSnapshot(), machine);
  EXPECT_EQ(install(FALSE, L"user"), S_OK);
  EXPECT_EQ(classesSnapshot(HKEY_CURRENT_USER), before);
}

// Class keys are made anew; the application's keys may hold launch settings of others.
TEST(Registration, LeavesWhatOthersKeepInTheApplicationsKeys) {
  const std::wstring classes = L"Software\\Classes\\",
                     application = L"AppID\\{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}",
                     stale = L"CLSID\\" + std::wstring(GuidText(efx.id).c_str()) + L"\\Stale";
  const auto launch = [&] {
    return classesSnapshot(HKEY_CURRENT_USER).contains(L"\\" + application + L"\\@RunAs");
  };
  RegSetKeyValueW(HKEY_CURRENT_USER, (classes + application).c_str(), L"RunAs", REG_SZ, L"x", 4);
  RegSetKeyValueW(HKEY_CURRENT_USER, (classes + stale).c_str(), nullptr, REG_SZ, L"x", 4);
  const auto install = exported<HRESULT WINAPI(BOOL, PCWSTR)>("DllInstall");
  EXPECT_EQ(install(TRUE, L"user"), S_OK);
  EXPECT_TRUE(launch());
  EXPECT_FALSE(classesSnapshot(HKEY_CURRENT_USER).contains(L"\\" + stale));
  EXPECT_EQ(install(FALSE, L"user"), S_OK);
  EXPECT_TRUE(launch());
  RegDeleteTreeW(HKEY_CURRENT_USER, (classes + application).c_str());
}

// Who reads the interfaces from the type library finds the operations where the vtable has them.
TEST(Registration, TheTypeLibraryPutsOperationsBehindThoseOfIUnknown) {
  ComPtr<ITypeLib> types;
  ASSERT_EQ(LoadTypeLib(libraryPath().c_str(), types.put()), S_OK);
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    ComPtr<ITypeInfo> own;
    ASSERT_EQ(types->GetTypeInfoOfGuid(which.own, own.put()), S_OK);
    const wchar_t* const names[] = {L"GetState", L"PerformAction"};
    for (UINT i = 0; i < std::size(names); ++i) {
      FUNCDESC* operation = nullptr;
      BSTR name = nullptr;
      ASSERT_EQ(own->GetFuncDesc(i, &operation), S_OK);
      EXPECT_EQ(own->GetDocumentation(operation->memid, &name, nullptr, nullptr, nullptr), S_OK);
      EXPECT_STREQ(name, names[i]);
      EXPECT_EQ(operation->oVft, static_cast<SHORT>((3 + i) * sizeof(void*)));
      SysFreeString(name);
      own->ReleaseFuncDesc(operation);
    }
  }
}

class Records : public testing::Test {
 protected:
  Records() {
    RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\VellumicRecords", root.put());
    RegOverridePredefKey(HKEY_CLASSES_ROOT, root.get());
  }
  ~Records() override {
    RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\VellumicRecords");
  }
  RegistryKey root;
};

TEST_F(Records, AnswersOfWritingAndRemoving) {
  const KernelHandle written(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  addRecordWatcher(written.get());
  APO_REG_PROPERTIES record = *registrationRecords()[1];
  expectAnswers({
      {"write null", E_POINTER, [] { return writeRecord(nullptr); }},
      {"remove null", E_POINTER, [] { return removeRecord(nullptr); }},
      {"no parent", notFound, [&] { return removeRecord(&record); }},
      {"write", S_OK, [&] { return writeRecord(&record); }},
      {"write again", S_OK, [&] { return writeRecord(&record); }},
      {"remove", S_OK, [&] { return removeRecord(&record); }},
      {"remove again", notFound, [&] { return removeRecord(&record); }},
  });
  EXPECT_EQ(WaitForSingleObject(written.get(), 0), WAIT_OBJECT_0);

  // 255 characters fit, 256 do not; the values before the fault stay, none comes after it.
  std::fill_n(record.szFriendlyName, 255, L'n');
  record.szFriendlyName[255] = 0;
  EXPECT_EQ(writeRecord(&record), S_OK);
  std::fill_n(record.szCopyrightInfo, 256, L'c');
  EXPECT_EQ(writeRecord(&record), tooLong);
  EXPECT_EQ(WaitForSingleObject(written.get(), 0), WAIT_OBJECT_0);  // of the first alone
  const Snapshot left = snapshotOf(HKEY_CURRENT_USER, L"Software\\VellumicRecords");
  const std::wstring path = L"\\" + recordsPath + L"\\" + GuidText(record.clsid).c_str();
  EXPECT_EQ(left.at(path + L"\\@FriendlyName").size(), 512U);
  EXPECT_FALSE(left.contains(path + L"\\@Copyright"));
  EXPECT_FALSE(left.contains(path + L"\\@MajorVersion"));
}

TEST_F(Records, AParentThatCannotBeMadeIsTold) {
  RegistryKey readOnly;
  RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\VellumicRecords", 0, KEY_READ, readOnly.put());
  RegCloseKey(readOnly.release());
  RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
  HKEY closed = nullptr;
  RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\VellumicGone", &closed);
  RegOverridePredefKey(HKEY_CLASSES_ROOT, closed);
  RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\VellumicGone");
  const HRESULT result = writeRecord(registrationRecords()[0]);
  EXPECT_EQ(HRESULT_FACILITY(result), FACILITY_WIN32);
  EXPECT_TRUE(FAILED(result));
  RegCloseKey(closed);
}

}  // namespace
}  // namespace vellumic::test
