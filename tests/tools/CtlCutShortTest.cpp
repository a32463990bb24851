// vellumic-ctl refused at any write to the registry, or killed there: nothing is lost, and what an
// effect or a later command then reads is whole.
#include <array>
#include <cstdlib>
#include <numeric>

#include "control/ParametersInRegistry.h"
#include "tests/control/ChildProcess.h"
#include "tests/support/ImportTable.h"
#include "tests/tools/AttachEndpoint.h"

extern "C" LONG NTAPI NtDeleteKey(HANDLE key);

namespace vellumic::tools {
namespace {

enum class End { refused, refusedForGood, killed };

int writesLeft = 0;
End endsAs = End::refused;
constexpr DWORD cutShort = 77;
// True: this write is not to be.
bool meetsEnd() {
  const int left = writesLeft--;
  if (left > 0 || (left < 0 && endsAs == End::refused)) return false;
  if (endsAs == End::killed) TerminateProcess(GetCurrentProcess(), cutShort);
  return true;
}

template <auto function>
struct Gate;
template <class... Arguments, LSTATUS(WINAPI* function)(Arguments...)>
struct Gate<function> {
  static inline LSTATUS(WINAPI* original)(Arguments...) = nullptr;
  static LSTATUS WINAPI pass(Arguments... arguments) {
    return meetsEnd() ? ERROR_ACCESS_DENIED : original(arguments...);
  }
  Gate(test::ImportTable& imports, const char* name) { original = imports.replace(name, &pass); }
};

int runToItsEnd(const std::string& words, int writes, End end) {
  writesLeft = writes;
  endsAs = end;
  test::ImportTable imports{GetModuleHandleW(nullptr)};
  const Gate<&RegSetValueExW> set{imports, "RegSetValueExW"};
  const Gate<&RegDeleteValueW> remove{imports, "RegDeleteValueW"};
  const Gate<&RegCreateKeyExW> create{imports, "RegCreateKeyExW"};
  const Gate<&RegDeleteTreeW> removeTree{imports, "RegDeleteTreeW"};
  const Gate<&NtDeleteKey> removeKey{imports, "NtDeleteKey"};
  if (end == End::killed) return called(ctlMain, words);
  const ToolRun outcome = ctl(words);
  if (words.starts_with("settings") && outcome.exitCode != 0)
    expectParts(outcome.complained,
                {"Settings\\2", ": writing Param", " failed (error 5); run as"});
  return outcome.exitCode;
}

// Writes, tree of HKEY_CURRENT_USER in the machine's place (or "machine"), words of the command.
constexpr char variable[] = "VELLUMIC_TEST_COMMAND";
const test::ChildMode killed{
    "ctl-killed", [] {
      std::istringstream command(std::getenv(variable));
      int writes = 0;
      std::string tree, words;
      std::getline(command >> writes >> tree, words);
      RegistryKey root;
      if (RegOpenKeyW(HKEY_CURRENT_USER, wide(tree).c_str(), root.put()) == ERROR_SUCCESS)
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, root.get());
      return runToItsEnd(words, writes, End::killed);
    }};

// The exit code; nothing when there were not so many writes.
std::optional<int> ended(const std::string& words, int writes, End end,
                         const std::string& tree = "machine") {
  if (end != End::killed) {
    const int exitCode = runToItsEnd(words, writes, end);
    return writesLeft < 0 ? std::optional(exitCode) : std::nullopt;
  }
  SetEnvironmentVariableA(variable, (std::to_string(writes) + ' ' + tree + ' ' + words).c_str());
  const DWORD code = test::ChildProcess("ctl-killed").wait();
  return code == 0 ? std::nullopt : std::optional(static_cast<int>(code));
}

using CtlCutShort = InOwnFolder;

// A place of the driver's kept in a chain, another one free; and no key at all.
TEST_F(CtlCutShort, AttachmentsAreWholeAndGoBothWays) {
  const std::optional<RegistryValues> beginnings[] = {effectValues("6=driver m6=other"),
                                                      std::nullopt};
  const struct {
    const char* older;  // how it was attached before; null: not
    bool leaving;
    std::vector<End> ends;
  } cases[] = {{nullptr, false, {End::refused, End::refusedForGood, End::killed}},
               {"--class mfx --replace", false, {End::refused, End::refusedForGood}},
               {"--keep", true, {End::refused, End::refusedForGood, End::killed}}};
  int count = 0;
  for (const auto& before : beginnings) {
    const Endpoint complete(before);
    ASSERT_EQ(complete.attach("--keep").exitCode, 0);
    for (const auto& [older, leaving, ends] : cases)
      for (const End end : ends)
        // A kill without a key is as refused for good, and takes time.
        for (int writes = 0;; writes += end == End::killed && !before ? 5 : 1, ++count) {
          const Endpoint endpoint(before);
          ASSERT_TRUE(older == nullptr || endpoint.attach(older).exitCode == 0);
          std::filesystem::remove(endpoint.backup);
          const auto beginning = endpoint.values();
          const auto exitCode =
              ended(leaving ? "detach " + utf8(endpoint.guid) : endpoint.attaching("--keep"),
                    writes, end);
          if (!exitCode) {
            ASSERT_GT(writes, 7);
            break;
          }
          SCOPED_TRACE(testing::Message() << writes << " writes, end " << static_cast<int>(end)
                                          << (leaving ? ", detach" : ""));
          if (end == End::killed) {
            ASSERT_EQ(*exitCode, int{cutShort});
          } else if (end == End::refused && *exitCode != 0) {
            ASSERT_EQ(endpoint.values(), beginning);
            ASSERT_EQ(readAttachment(endpoint.guid).has_value(), older != nullptr);
          }
          // What calls itself whole is whole, and no class is without its modes.
          if (const auto record = readAttachment(endpoint.guid); record && record->whole) {
            ASSERT_TRUE(endpoint.values() == complete.values() || endpoint.values() == beginning);
          }
          for (const AttachedEffect& effect :
               attachedEffects(endpoint.values().value_or(RegistryValues{})))
            ASSERT_GE(effect.modes.size(), 3U);
          if (count % 2 == 0 && end != End::refused) {  // forward ...
            ASSERT_EQ(endpoint.attach("--keep").exitCode, 0);
            ASSERT_EQ(endpoint.values(), complete.values());
          }
          ASSERT_TRUE(!readAttachment(endpoint.guid) ||
                      endpoint.detach().exitCode == 0);  // ... back
          if (end == End::killed) {
            ASSERT_EQ(endpoint.values(), before);
          } else {  // an empty key may have been refused to go
            ASSERT_EQ(endpoint.values().value_or(RegistryValues{}),
                      before.value_or(RegistryValues{}));
          }
        }
  }
}

// As an effect reads at its start and at a reload.
void expectInForce(const std::array<float, rawCount>& values) {
  CParametersInRegistry effect;
  std::array<float, rawCount> atStart{}, other{}, atReload{};
  effect.readInitialSetting(atStart, other);
  EXPECT_EQ(atStart, values);
  RegistryKey settings;
  EXPECT_TRUE(effect.reloadSetting(settings, atReload));
  EXPECT_EQ(atReload, values);
}

TEST_F(CtlCutShort, OldOrNewSettingIsInForceButNeverAMixture) {
  // The tree and the new setting's key, 1365 values, the switch; the same over the old one, the
  // end.
  constexpr int untilSwitch = 3 + rawCount + 1, untilEnd = untilSwitch + 1 + rawCount + 1;
  const std::pair<int, End> cases[] = {{0, End::killed},           {untilSwitch - 1, End::killed},
                                       {untilSwitch, End::killed}, {untilEnd - 1, End::killed},
                                       {700, End::refused},        {2000, End::refused}};
  for (const auto& [writes, end] : cases) {
    SCOPED_TRACE(writes);
    test::RegistrySandbox registry;
    std::array<float, rawCount> values{};
    std::iota(values.begin(), values.end(), 0.0F);
    values[index(Raw::fadeRequest)] = 0.0F;
    registry.writeSetting(L"2", values);
    registry.select(L"2");
    EXPECT_EQ(ended("settings set noise.enabled=false", writes, end, utf8(registry.name())),
              end == End::killed ? int{cutShort} : 1);
    if (writes >= untilSwitch) values[index(Raw::noisePostfilter)] = 0.0F;
    expectInForce(values);

    // The next write finishes what was left.
    succeeded(ctl("settings set beamformer.enabled=false"));
    values[index(Raw::beamformer)] = 0.0F;
    expectInForce(values);
    const RegistryKey settings = CParametersInRegistry().openSettings();
    EXPECT_FALSE(CRegistryUtils::openKey(settings.get(), L"2-new"));
    EXPECT_TRUE(CRegistryUtils::openKey(settings.get(), L"2"));
  }
}

}  // namespace
}  // namespace vellumic::tools
