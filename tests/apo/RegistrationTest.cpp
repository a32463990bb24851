// What registration writes, and that it leaves the machine as it was.
#include <objbase.h>

#include <algorithm>

#include "apo/RegistrationRecord.h"
#include "control/BoundedText.h"
#include "tests/apo/ApoWorld.h"
#include "tests/apo/RegistryTree.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {
namespace {

constexpr HRESULT notFound = static_cast<HRESULT>(0x80070002);

// Without the parents, which stay: of the records, and of a user's first classes.
RegistryTree classesBelow(HKEY root, const wchar_t* path = L"Software\\Classes") {
  RegistryTree classes = treeBelow(root, path);
  for (const wchar_t* parent : {L"", L"\\AudioEngine\\AudioProcessingObjects", L"\\AudioEngine",
                                L"\\AppID", L"\\CLSID", L"\\Interface", L"\\Typelib"})
    if (const auto key = classes.find(parent); key != classes.end() && key->second.empty())
      classes.erase(key);
  return classes;
}

std::wstring libraryPath() { return (programFolder() / L"VellumicAPO64c.dll").wstring(); }

// A line for each key that has values; those of the type library's interfaces are the system's.
std::wstring linesOf(const RegistryTree& classes) {
  std::wstring all;
  for (const auto& [path, values] : classes) {
    if (values.empty() || path.starts_with(L"\\Interface")) continue;
    all += L"\n" + path;
    for (const auto& [name, value] : values) {
      std::wstring text;
      if (const auto texts = tools::textsOf(value); !texts.empty()) text = texts[0];
      if (value.type == REG_DWORD)
        text = std::to_wstring(*reinterpret_cast<const DWORD*>(value.data.data()));
      if (tools::sameText(text, libraryPath())) text = L"(library)";
      if (tools::sameText(text, programFolder().wstring())) text = L"(folder)";
      all += L" " + name + L"=" + text;
    }
  }
  return all;
}

// A classes root of the test's own.
class Classes : public testing::Test {
 protected:
  [[nodiscard]] std::wstring lines() const { return linesOf(classesBelow(root.root(), L"")); }
  const ScratchKey root{HKEY_CLASSES_ROOT};
};

constexpr wchar_t registered[] =
    LR"(
\AppID\VellumicAPO64c.dll AppID={ED8C8A2F-9D0D-4005-ABC8-3529708C3957}
\AppID\{ED8C8A2F-9D0D-4005-ABC8-3529708C3957} =VellumicAPO64c
\AudioEngine\AudioProcessingObjects\{41804F5A-584C-41A0-B253-2D0CA712D3A9} APOInterface0={2609293F-B7E9-4880-9D0A-3EA0F7F8C26C} Copyright=Copyright (C) the Vellumic developers Flags=12 FriendlyName=CVellumicAPOCaptureMFX MajorVersion=3 MaxInputConnections=1 MaxInstances=4294967295 MaxOutputConnections=1 MinInputConnections=1 MinorVersion=18 MinOutputConnections=1 NumAPOInterfaces=1
\AudioEngine\AudioProcessingObjects\{577F6409-47DB-42FF-B8EA-09DCF969B687} APOInterface0={D2D5DBBA-CBE9-4749-91AE-A6E69C7B6602} Copyright=Copyright (C) the Vellumic developers Flags=14 FriendlyName=CVellumicAPOCaptureEFX MajorVersion=3 MaxInputConnections=1 MaxInstances=4294967295 MaxOutputConnections=1 MinInputConnections=1 MinorVersion=18 MinOutputConnections=1 NumAPOInterfaces=1
\AudioEngine\AudioProcessingObjects\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3} APOInterface0={21D4979C-44AB-4F9F-96A9-4C955E3A06FE} Copyright=Copyright (C) the Vellumic developers Flags=12 FriendlyName=CVellumicAPOCaptureKDMFX MajorVersion=3 MaxInputConnections=1 MaxInstances=4294967295 MaxOutputConnections=1 MinInputConnections=1 MinorVersion=18 MinOutputConnections=1 NumAPOInterfaces=1
\CLSID\{41804F5A-584C-41A0-B253-2D0CA712D3A9} =VellumicAPOCaptureMFX Class
\CLSID\{41804F5A-584C-41A0-B253-2D0CA712D3A9}\InprocServer32 =(library) ThreadingModel=Both
\CLSID\{577F6409-47DB-42FF-B8EA-09DCF969B687} =VellumicAPOCaptureEFX Class
\CLSID\{577F6409-47DB-42FF-B8EA-09DCF969B687}\InprocServer32 =(library) ThreadingModel=Both
\CLSID\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3} =VellumicAPOCaptureKDMFX Class
\CLSID\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3}\InprocServer32 =(library) ThreadingModel=Both
\Typelib\{F9EEAA9C-622F-4EF9-8658-384DA91E1FCF}\3.12 =Vellumic capture effects
\Typelib\{F9EEAA9C-622F-4EF9-8658-384DA91E1FCF}\3.12\0\win64 =(library)
\Typelib\{F9EEAA9C-622F-4EF9-8658-384DA91E1FCF}\3.12\FLAGS =8
\Typelib\{F9EEAA9C-622F-4EF9-8658-384DA91E1FCF}\3.12\HELPDIR =(folder))";

TEST_F(Classes, HoldWhatIsWrittenDownHere) {
  const auto registerServer = exported<HRESULT WINAPI()>("DllRegisterServer"),
             unregisterServer = exported<HRESULT WINAPI()>("DllUnregisterServer");
  for (int round = 0; round < 2; ++round) EXPECT_EQ(registerServer(), S_OK);
  EXPECT_EQ(lines(), registered);
  EXPECT_EQ(unregisterServer(), S_OK);
  EXPECT_TRUE(classesBelow(root.root(), L"").empty());
  EXPECT_EQ(unregisterServer(), notFound);
}

HRESULT WINAPI registryDenied() { return TYPE_E_REGISTRYACCESS; }

// A user's registration asks for no right on the machine: there the general functions for type
// libraries write to the machine's classes, which a limited user may not. What others keep in the
// application's keys stays; class keys are made anew.
TEST(Registration, ForOneUser) {
  ImportTable imports(library());
  for (const char* function : {"RegisterTypeLib", "UnRegisterTypeLib"})
    imports.put(function, &registryDenied);
  const ScratchKey currentUser(HKEY_CURRENT_USER);
  const std::wstring classes = L"Software\\Classes\\",
                     application = L"AppID\\{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}",
                     stale = L"CLSID\\" + std::wstring(GuidText(efx.id).c_str()) + L"\\Stale";
  RegSetKeyValueW(HKEY_CURRENT_USER, (classes + application).c_str(), L"RunAs", REG_SZ, L"x", 4);
  const RegistryTree before = classesBelow(HKEY_CURRENT_USER);
  RegSetKeyValueW(HKEY_CURRENT_USER, (classes + stale).c_str(), nullptr, REG_SZ, L"x", 4);
  const RegistryTree machine = classesBelow(HKEY_LOCAL_MACHINE);
  const auto install = exported<HRESULT WINAPI(BOOL, PCWSTR)>("DllInstall");
  ASSERT_EQ(install(TRUE, L"user"), S_OK);
  std::wstring ours = linesOf(classesBelow(HKEY_CURRENT_USER));
  ours.erase(ours.find(L" RunAs=x"), 8);
  EXPECT_EQ(ours, registered);
  EXPECT_EQ(classesBelow(HKEY_LOCAL_MACHINE), machine);
  EXPECT_EQ(install(FALSE, L"user"), S_OK);
  EXPECT_EQ(classesBelow(HKEY_CURRENT_USER), before);
}

// Who reads the interfaces from the type library finds the operations where the vtable has them.
TEST(Registration, TheTypeLibraryPutsOperationsBehindThoseOfIUnknown) {
  ComPtr<ITypeLib> types;
  ASSERT_EQ(LoadTypeLib(libraryPath().c_str(), types.put()), S_OK);
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    ComPtr<ITypeInfo> own;
    ASSERT_EQ(types->GetTypeInfoOfGuid(which.own, own.put()), S_OK);
    UINT place = 0;
    for (OLECHAR* name :
         {const_cast<OLECHAR*>(L"GetState"), const_cast<OLECHAR*>(L"PerformAction")}) {
      MEMBERID id = 0;
      FUNCDESC* operation = nullptr;
      EXPECT_EQ(own->GetIDsOfNames(&name, 1, &id), S_OK);
      ASSERT_EQ(own->GetFuncDesc(place, &operation), S_OK);
      EXPECT_EQ(operation->memid, id);
      EXPECT_EQ(operation->oVft, static_cast<SHORT>((3 + place++) * sizeof(void*)));
      own->ReleaseFuncDesc(operation);
    }
  }
}

TEST_F(Classes, AnswersOfWritingAndRemovingARecord) {
  const KernelHandle written(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const auto told = [&] { return WaitForSingleObject(written.get(), 0) == WAIT_OBJECT_0; };
  addRecordWatcher(written.get());
  APO_REG_PROPERTIES record = *registrationRecords()[1];
  EXPECT_EQ(writeRecord(nullptr), E_POINTER);
  EXPECT_EQ(removeRecord(nullptr), E_POINTER);
  EXPECT_EQ(removeRecord(&record), notFound);  // no parent
  EXPECT_FALSE(told());
  // 255 characters fit, 256 do not; the values before the fault stay, none comes after it.
  std::fill_n(record.szFriendlyName, 255, L'n');
  EXPECT_EQ(writeRecord(&record), S_OK);
  EXPECT_TRUE(told());
  std::fill_n(record.szCopyrightInfo, 256, L'c');
  EXPECT_EQ(writeRecord(&record), static_cast<HRESULT>(0x80070057));
  EXPECT_FALSE(told());
  EXPECT_EQ(lines(), L"\n\\AudioEngine\\AudioProcessingObjects\\" +
                         std::wstring(GuidText(mfx.id).c_str()) + L" FriendlyName=" +
                         std::wstring(255, L'n'));
}

}  // namespace
}  // namespace vellumic::test
