// vellumic-ctl attach and detach on real keys of the machine, beside no audio service.
#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>
#include <objbase.h>
#include <sddl.h>

#include <array>
#include <filesystem>

#include "apo/ProcessingModes.h"
#include "control/BoundedText.h"
#include "control/Names.h"
#include "tests/control/ChildProcess.h"
#include "tests/support/ImportTable.h"
#include "tests/tools/CtlRun.h"
#include "tools/ctl/Attachment.h"
#include "tools/ctl/TextConversion.h"

extern "C" LONG NTAPI NtDeleteKey(HANDLE key);

namespace vellumic::tools {
namespace {

using Texts = std::vector<std::wstring>;

const std::wstring driver = L"{AAAAAAAA-1111-2222-3333-444444444444}";
const std::wstring other = L"{BBBBBBBB-1111-2222-3333-444444444444}";
const std::wstring efx = classText(effectSlots[0]), mfx = classText(effectSlots[1]);
const Texts allModes{GuidText(modeDefault).c_str(), GuidText(modeRaw).c_str(),
                     GuidText(modeSpeech).c_str()};

std::wstring place(unsigned number) { return effectValueName(effectPropertySet, number); }
std::wstring modes(unsigned number) { return effectValueName(effectModesSet, number); }

// An endpoint of the test's own in the machine's registry, without effect properties at first.
class Endpoint {
 public:
  Endpoint() {
    GUID id{};
    EXPECT_EQ(CoCreateGuid(&id), S_OK);
    guid = GuidText(id).c_str();
    EXPECT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, path().c_str(), key_.put()), ERROR_SUCCESS);
  }
  ~Endpoint() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (attachmentsPath + guid).c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, path().c_str());
    std::error_code ignored;
    std::filesystem::remove(backup, ignored);
  }
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  [[nodiscard]] std::wstring path() const { return captureEndpointsPath + guid; }
  void set(const RegistryValues& values) const {
    RegistryKey key;
    ASSERT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, effectPropertiesPath(guid).c_str(), key.put()),
              ERROR_SUCCESS);
    for (const auto& [name, value] : values)
      ASSERT_EQ(writeValue(key.get(), name, value), ERROR_SUCCESS);
  }
  [[nodiscard]] std::optional<RegistryValues> values() const { return readEffectProperties(guid); }
  [[nodiscard]] Texts texts(const std::wstring& name) const {
    const auto all = values().value_or(RegistryValues{});
    const auto found = all.find(name);
    return found == all.end() ? Texts{} : textsOf(found->second);
  }
  CtlOutcome attach(std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"attach", utf8(guid), "--backup", backup});
    std::error_code ignored;
    std::filesystem::remove(backup, ignored);
    return captured(more);
  }
  CtlOutcome detach() const { return captured({"detach", utf8(guid)}); }

  std::wstring guid;
  std::string backup = (std::filesystem::temp_directory_path() / "vellumic-before.reg").string();

 private:
  RegistryKey key_;
};

struct RoundTrip {
  const char* name;
  std::optional<RegistryValues> before;
  std::vector<std::string> options;
  std::vector<std::pair<std::wstring, Texts>> attached;  // what some values then are
};

const RegistryValue number{.type = REG_DWORD, .data = {std::byte{1}, {}, {}, {}}};
const RegistryValue bytes{.type = REG_BINARY, .data = {std::byte{'{'}, {}, std::byte{'x'}}};

const std::vector<RoundTrip> roundTrips{
    {"NoKey",
     std::nullopt,
     {},
     {{place(0), {GuidText(GUID{}).c_str()}},
      {place(6), {mfx}},
      {place(7), {efx}},
      {modes(6), allModes},
      {modes(7), allModes}}},
    {"OneClassOneMode",
     RegistryValues{},
     {"--class", "kdmfx", "--mode", "speech"},
     {{place(9), {classText(effectSlots[2])}}, {modes(9), {allModes[2]}}, {place(6), {}}}},
    {"DriverReplaced",
     RegistryValues{{place(0), textValue(other)},
                    {place(6), textValue(driver)},
                    {modes(6), textsValue({other})}},
     {"--replace"},
     {{place(0), {other}}, {place(6), {mfx}}, {modes(6), allModes}, {place(14), {}}}},
    {"DriverKept",
     RegistryValues{{place(6), textValue(driver)}, {modes(6), textsValue({other, allModes[0]})}},
     {"--keep", "--class", "mfx"},
     {{place(6), {driver}},
      {place(14), {driver, mfx}},
      {modes(6), {other, allModes[0], allModes[1], allModes[2]}}}},
    {"ChainOfTheDriver",
     RegistryValues{{place(14), textsValue({driver, other})}},
     {},
     {{place(14), {driver, other, mfx}}, {place(15), {efx}}, {place(6), {}}, {place(7), {}}}},
    {"ChainReplaced",
     RegistryValues{{place(14), textsValue({driver})}},
     {"--replace", "--class", "mfx"},
     {{place(14), {mfx}}}},
    {"LegacyReplaced",
     RegistryValues{{place(1), textValue(driver)}},
     {"--replace"},
     {{place(1), {driver}}, {place(6), {mfx}}}},
    {"NullClassIsFree",
     RegistryValues{{place(7), textValue(GuidText(GUID{}).c_str())}},
     {"--class", "efx"},
     {{place(7), {efx}}}},
    {"StrangeTypes",
     RegistryValues{{place(6), number},
                    {place(7), textValue(driver)},
                    {modes(6), bytes},
                    {L"", textValue(L"x")},
                    {L"odd \"name\"\\", number}},
     {"--keep"},
     {{place(6), {mfx}}, {modes(6), allModes}, {place(15), {driver, efx}}}},
};

class CtlAttach : public testing::TestWithParam<RoundTrip> {};

TEST_P(CtlAttach, ComesAndGoesWithoutATrace) {
  const RoundTrip& trip = GetParam();
  const Endpoint endpoint;
  if (trip.before) endpoint.set(*trip.before);

  auto dry = trip.options;
  dry.push_back("--dry-run");
  EXPECT_EQ(endpoint.attach(dry).exitCode, 0);
  EXPECT_EQ(endpoint.values(), trip.before);

  const CtlOutcome first = endpoint.attach(trip.options);
  ASSERT_EQ(first.exitCode, 0) << first.complained;
  for (const auto& [name, texts] : trip.attached)
    EXPECT_EQ(endpoint.texts(name), texts) << utf8(name);
  const auto attached = endpoint.values();
  // The registry editor alone can put everything back, but for an empty key.
  ASSERT_EQ(std::system(("regedit /S " + endpoint.backup).c_str()), 0);
  EXPECT_EQ(endpoint.values(), trip.before.value_or(RegistryValues{}));
  endpoint.set(*attached);

  expectParts(endpoint.attach(trip.options).printed, {"attached like this already"});
  EXPECT_EQ(endpoint.attach({"--class", "mfx", "--replace"}).exitCode, 0);  // another one over it
  const CtlOutcome last = endpoint.detach();
  EXPECT_EQ(last.exitCode, 0) << last.complained;
  EXPECT_EQ(endpoint.values(), trip.before);
  expectParts(endpoint.detach().complained, {"nothing of Vellumic is attached"});
}

INSTANTIATE_TEST_SUITE_P(Endpoints, CtlAttach, testing::ValuesIn(roundTrips),
                         [](const auto& trip) { return std::string(trip.param.name); });

TEST(CtlAttachValues, EndWithTheirData) {
  RegistryValue value = textsValue({driver, other});
  value.data.resize(value.data.size() - 5);  // neither terminator, and half a unit
  const Texts texts = textsOf(value);
  ASSERT_EQ(texts.size(), 2U);
  EXPECT_EQ(texts[1], other.substr(0, other.size() - 1));
  EXPECT_TRUE(textsOf(bytes).empty());
}

TEST(CtlAttachErrors, LeaveEverythingAsItWas) {
  struct Refusal {
    RegistryValues before;
    std::vector<std::string> arguments;
    std::string complaint;
  };
  const std::vector<Refusal> refusals{
      {{{place(6), textValue(driver)}}, {}, "mfx: the driver's effect " + utf8(driver)},
      {{{place(1), textValue(driver)}}, {"--keep"}, "cannot run beside it; add --replace"},
      {{}, {"--class", "gfx"}, "gfx not in {efx,mfx,kdmfx}"},
      {{}, {"--mode", "movie"}, "movie not in {default,raw,speech}"},
      {{}, {"--keep", "--replace"}, "excludes"},
      {{}, {"--backup", "C:\\no\\such\\folder.reg"}, "folder.reg: cannot be written whole"},
  };
  for (const Refusal& refusal : refusals) {
    const Endpoint endpoint;
    endpoint.set(refusal.before);
    auto arguments = refusal.arguments;
    arguments.insert(arguments.begin(), {"attach", utf8(endpoint.guid)});
    const CtlOutcome outcome = captured(arguments);
    EXPECT_EQ(outcome.exitCode, 1);
    expectParts(outcome.complained, {refusal.complaint});
    EXPECT_EQ(endpoint.values(), refusal.before);
    EXPECT_FALSE(readAttachment(endpoint.guid));
  }
}

// Somebody writes after us: what is theirs stays, what is ours goes.
TEST(CtlAttachForeign, ChangesOfOthersOutliveUs) {
  struct Later {
    RegistryValues before;
    std::vector<std::string> options;
    std::wstring name;
    RegistryValue written, left;
  };
  const std::vector<Later> cases{
      {{}, {}, place(6), textValue(driver), textValue(driver)},
      {{{place(14), textsValue({driver})}},
       {},
       place(14),
       textsValue({driver, mfx, other}),
       textsValue({driver, other})},
      {{}, {}, L"{somebody},1", textValue(L"x"), textValue(L"x")},
      {{{place(0), textValue(other)}}, {}, place(0), textValue(driver), textValue(driver)},
  };
  for (const Later& later : cases) {
    const Endpoint endpoint;
    endpoint.set(later.before);
    ASSERT_EQ(endpoint.attach(later.options).exitCode, 0);
    endpoint.set({{later.name, later.written}});
    ASSERT_EQ(endpoint.detach().exitCode, 0);
    const auto values = endpoint.values().value();
    EXPECT_EQ(values.at(later.name), later.left) << utf8(later.name);
    EXPECT_TRUE(attachedEffects(values).empty()) << utf8(later.name);
  }
  // The modes of a place that was taken over stay with it.
  const Endpoint endpoint;
  ASSERT_EQ(endpoint.attach().exitCode, 0);
  endpoint.set({{place(7), textValue(driver)}});
  ASSERT_EQ(endpoint.detach().exitCode, 0);
  EXPECT_EQ(endpoint.texts(modes(7)), allModes);
  EXPECT_EQ(endpoint.texts(modes(6)), Texts{});
}

// --- Cut short, or refused, at any write.

int writesLeft = 0;
bool endsProcess = false, forGood = false;
constexpr DWORD cutShort = 77;
// True: this write is not to be.
bool meets() {
  const int left = writesLeft--;
  if (left > 0 || (left < 0 && !forGood)) return false;
  if (endsProcess) TerminateProcess(GetCurrentProcess(), cutShort);
  return true;
}

template <auto function>
struct Gate;
template <class... Arguments, LSTATUS(WINAPI* function)(Arguments...)>
struct Gate<function> {
  static inline LSTATUS(WINAPI* original)(Arguments...) = nullptr;
  static LSTATUS WINAPI pass(Arguments... arguments) {
    return meets() ? ERROR_ACCESS_DENIED : original(arguments...);
  }
  Gate(test::ImportTable& imports, const char* name) {
    original =
        reinterpret_cast<decltype(original)>(imports.replace(name, reinterpret_cast<void*>(&pass)));
  }
};

// While it lives, the write of that number (and all after it) fails, or ends the process.
struct Gates {
  explicit Gates(int writes, bool ends, bool lasting = false) {
    writesLeft = writes;
    endsProcess = ends;
    forGood = lasting;
  }
  [[nodiscard]] static bool reached() { return writesLeft < 0; }
  test::ImportTable imports{GetModuleHandleW(nullptr)};
  Gate<&RegSetValueExW> set{imports, "RegSetValueExW"};
  Gate<&RegDeleteValueW> remove{imports, "RegDeleteValueW"};
  Gate<&RegCreateKeyExW> create{imports, "RegCreateKeyExW"};
  Gate<&RegDeleteTreeW> removeTree{imports, "RegDeleteTreeW"};
  Gate<&NtDeleteKey> removeKey{imports, "NtDeleteKey"};
};

std::string variable(const wchar_t* name) {
  std::array<wchar_t, 200> text{};
  GetEnvironmentVariableW(name, text.data(), text.size());
  return utf8(text.data());
}
int cutShortAt(const char* command) {
  const Gates gates(std::stoi(variable(L"VELLUMIC_TEST_WRITES")), true);
  std::vector<std::string> arguments{command, variable(L"VELLUMIC_TEST_ENDPOINT")};
  if (arguments.front() == "attach") {
    const std::string backup = variable(L"VELLUMIC_TEST_BACKUP");
    DeleteFileA(backup.c_str());
    arguments.insert(arguments.end(), {"--backup", backup, "--keep"});
  }
  return ctl(arguments);
}
const test::ChildMode attachAndDie{"attach-and-die", [] { return cutShortAt("attach"); }};
const test::ChildMode detachAndDie{"detach-and-die", [] { return cutShortAt("detach"); }};

// A place of the driver's kept in a chain, another one free; and no key at all.
const std::array<std::optional<RegistryValues>, 2> beginnings{
    RegistryValues{{place(6), textValue(driver)}, {modes(6), textsValue({other})}}, std::nullopt};

// Each effect is as it was or complete: no class without its modes.
void expectNoHalves(const Endpoint& endpoint) {
  for (const AttachedEffect& effect : attachedEffects(endpoint.values().value_or(RegistryValues{})))
    EXPECT_GE(effect.modes.size(), allModes.size());
}

TEST(CtlAttachKill, AnyCutIsMendedEitherWay) {
  int cuts = 0;
  for (const auto& before : beginnings)
    for (const char* const mode : {"attach-and-die", "detach-and-die"})
      for (int writes = 0;; ++writes, ++cuts) {
        const Endpoint endpoint;
        if (before) endpoint.set(*before);
        ASSERT_EQ(endpoint.attach({"--keep"}).exitCode, 0);
        const auto whole = endpoint.values();
        if (std::string(mode) == "attach-and-die") {
          ASSERT_EQ(endpoint.detach().exitCode, 0);
        }
        SetEnvironmentVariableW(L"VELLUMIC_TEST_ENDPOINT", endpoint.guid.c_str());
        SetEnvironmentVariableW(L"VELLUMIC_TEST_WRITES", std::to_wstring(writes).c_str());
        SetEnvironmentVariableW(L"VELLUMIC_TEST_BACKUP", wide(endpoint.backup).c_str());
        const DWORD code = test::ChildProcess(mode).wait();
        if (code == 0) break;
        ASSERT_EQ(code, cutShort);
        expectNoHalves(endpoint);
        if (writes % 2 == 0) {  // forward ...
          ASSERT_EQ(endpoint.attach({"--keep"}).exitCode, 0) << mode << writes;
          ASSERT_EQ(endpoint.values(), whole) << mode << writes;
        }
        if (endpoint.values() != before) {  // ... and back
          ASSERT_EQ(endpoint.detach().exitCode, 0) << mode << writes;
        }
        ASSERT_EQ(endpoint.values(), before) << mode << writes;
      }
  RecordProperty("cuts", cuts);
  EXPECT_GT(cuts, 50);
}

// From an endpoint as it was, and over an attachment; attached, and detached. Where not even taking
// back succeeds, a later detach does it.
TEST(CtlAttachFail, ARefusedWriteTakesBackThoseBefore) {
  int failures = 0;
  for (const auto& before : beginnings)
    for (int kind = 0; kind < 6; ++kind)
      for (int writes = 0; writes < 200; ++writes) {
        const bool over = kind >= 2, leaving = kind >= 4, lasting = kind % 2 == 1;
        const Endpoint endpoint;
        if (before) endpoint.set(*before);
        if (over) {
          ASSERT_EQ(endpoint.attach({"--class", "mfx", "--replace"}).exitCode, 0);
        }
        const auto beginning = endpoint.values();
        int exitCode = 0;
        bool reached = false;
        {
          const Gates gates(writes, false, lasting);
          exitCode = (leaving ? endpoint.detach() : endpoint.attach({"--keep"})).exitCode;
          reached = Gates::reached();
        }
        if (!reached) break;
        ++failures;
        if (!lasting && exitCode != 0) {
          ASSERT_EQ(endpoint.values(), beginning) << kind << ' ' << writes;
          ASSERT_EQ(readAttachment(endpoint.guid).has_value(), over) << kind << ' ' << writes;
        }
        if (readAttachment(endpoint.guid)) {
          ASSERT_EQ(endpoint.detach().exitCode, 0) << kind << ' ' << writes;
        }
        ASSERT_EQ(endpoint.values().value_or(RegistryValues{}), before.value_or(RegistryValues{}))
            << kind << ' ' << writes;
      }
  EXPECT_GT(failures, 100);
}

TEST(CtlAttachRights, AreNamedWhenTheyAreMissing) {
  const Endpoint endpoint;
  endpoint.set({});
  // A key that only the system may write; Wine knows no way round permissions.
  RegistryKey key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, effectPropertiesPath(endpoint.guid).c_str(), 0,
                          READ_CONTROL | WRITE_DAC, key.put()),
            ERROR_SUCCESS);
  PSECURITY_DESCRIPTOR readOnly = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"D:P(A;;KA;;;SY)(A;;KR;;;WD)(A;;RCWD;;;BA)", SDDL_REVISION_1, &readOnly, nullptr));
  ASSERT_EQ(RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, readOnly), ERROR_SUCCESS);
  LocalFree(readOnly);
  const CtlOutcome outcome = endpoint.attach();
  EXPECT_EQ(outcome.exitCode, 1);
  expectParts(outcome.complained, {"opening for writing failed (error 5); run as administrator"});
  EXPECT_EQ(endpoint.values(), RegistryValues{});
  EXPECT_FALSE(readAttachment(endpoint.guid));
}

const test::ChildMode withoutRights{
    "attach-without-rights", [] {
      RegistryKey unused;
      HANDLE token = nullptr;
      OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token);
      const KernelHandle owner(token);
      TOKEN_PRIVILEGES removed{.PrivilegeCount = 1, .Privileges = {{{}, SE_PRIVILEGE_REMOVED}}};
      LookupPrivilegeValueW(nullptr, L"SeRestorePrivilege", &removed.Privileges[0].Luid);
      AdjustTokenPrivileges(token, FALSE, &removed, 0, nullptr, nullptr);
      return ctl({"attach", variable(L"VELLUMIC_TEST_ENDPOINT"), "--backup",
                  variable(L"VELLUMIC_TEST_BACKUP")});
    }};

TEST(CtlAttachRights, PrivilegesAreNeededBeforeAnythingIsWritten) {
  const Endpoint endpoint;
  std::filesystem::remove(endpoint.backup);
  SetEnvironmentVariableW(L"VELLUMIC_TEST_ENDPOINT", endpoint.guid.c_str());
  SetEnvironmentVariableW(L"VELLUMIC_TEST_BACKUP", wide(endpoint.backup).c_str());
  EXPECT_EQ(test::ChildProcess("attach-without-rights").wait(), 1U);
  EXPECT_FALSE(endpoint.values());
  EXPECT_FALSE(std::filesystem::exists(endpoint.backup));
}

}  // namespace
}  // namespace vellumic::tools
