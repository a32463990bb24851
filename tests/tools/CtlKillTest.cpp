// vellumic-ctl cut short in the middle of writing: what an effect then reads is whole.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>

#include "control/ParametersInRegistry.h"
#include "tests/control/ChildProcess.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/support/ImportTable.h"
#include "tests/tools/CtlRun.h"

namespace vellumic::tools {
namespace {

constexpr wchar_t treeVariable[] = L"VELLUMIC_TEST_TREE";      // subkey of HKEY_CURRENT_USER
constexpr wchar_t writesVariable[] = L"VELLUMIC_TEST_WRITES";  // writes before the end
constexpr DWORD cutShort = 77;

std::wstring variable(const wchar_t* name) {
  std::array<wchar_t, 100> text{};
  GetEnvironmentVariableW(name, text.data(), text.size());
  return text.data();
}

int writesLeft = 0;
decltype(&RegSetValueExW) writeValue = nullptr;
LSTATUS WINAPI writeOrEnd(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                          DWORD size) {
  if (writesLeft-- == 0) TerminateProcess(GetCurrentProcess(), cutShort);
  return writeValue(key, name, reserved, type, data, size);
}

const test::ChildMode child{"set-and-die", [] {
                              HKEY root = nullptr;
                              RegOpenKeyW(HKEY_CURRENT_USER, variable(treeVariable).c_str(), &root);
                              RegOverridePredefKey(HKEY_LOCAL_MACHINE, root);
                              writesLeft = std::stoi(variable(writesVariable));
                              test::ImportTable imports(GetModuleHandleW(nullptr));
                              writeValue = reinterpret_cast<decltype(writeValue)>(imports.replace(
                                  "RegSetValueExW", reinterpret_cast<void*>(&writeOrEnd)));
                              return ctl({"settings", "set", "noise.enabled=false"});
                            }};

// As an effect reads at its start and at a reload.
struct Reading {
  std::array<float, rawCount> atStart{}, atReload{};
  Reading() {
    CParametersInRegistry effect;
    std::array<float, rawCount> other{};
    effect.readInitialSetting(atStart, other);
    RegistryKey settings;
    EXPECT_TRUE(effect.reloadSetting(settings, atReload));
  }
};

class CtlKill : public testing::TestWithParam<int> {};

TEST_P(CtlKill, OldOrNewSettingIsInForceButNeverAMixture) {
  const int writes = GetParam();
  test::RegistrySandbox registry;
  std::array<float, rawCount> values{};
  for (std::size_t slot = 0; slot < rawCount; ++slot) values[slot] = static_cast<float>(slot);
  values[index(Raw::fadeRequest)] = 0.0F;
  registry.writeSetting(L"2", 1, rawCount, [&](unsigned number) { return values[number - 1]; });
  registry.select(L"2");
  const auto tree = L"Software\\VellumicTest" + std::to_wstring(GetCurrentProcessId());
  SetEnvironmentVariableW(treeVariable, tree.c_str());
  SetEnvironmentVariableW(writesVariable, std::to_wstring(writes).c_str());
  EXPECT_EQ(test::ChildProcess("set-and-die").wait(), cutShort);

  // 1365 values and the switch make the new setting.
  constexpr int untilSwitch = rawCount + 1;
  if (writes >= untilSwitch) values[index(Raw::noisePostfilter)] = 0.0F;
  const Reading after;
  EXPECT_EQ(after.atStart, values);
  EXPECT_EQ(after.atReload, values);

  // The next write finishes what was left.
  ASSERT_EQ(ctl({"settings", "set", "beamformer.enabled=false"}), 0);
  values[index(Raw::beamformer)] = 0.0F;
  EXPECT_EQ(Reading().atReload, values);
  CParametersInRegistry store;
  EXPECT_FALSE(CRegistryUtils::openKey(store.openSettings().get(), L"2-new"));
  EXPECT_TRUE(CRegistryUtils::openKey(store.openSettings().get(), L"2"));
}

INSTANTIATE_TEST_SUITE_P(Writes, CtlKill, testing::Values(0, 1, 700, 1364, 1365, 1366, 2000, 2731));

}  // namespace
}  // namespace vellumic::tools
