#include <array>
#include <bit>
#include <cstring>

#include "control/ParametersInRegistry.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/support/OpenHandles.h"
#include "tests/support/RandomRounds.h"

namespace vellumic::test {
namespace {

constexpr float numbered(unsigned number) { return static_cast<float>(number); }
constexpr float untouched = -7.0F;

struct Values {
  Values() {
    a.fill(untouched);
    b = a;
  }
  std::array<float, rawCount> a, b;
};

class RegistryTest : public testing::Test {
 protected:
  void load() { parameters.readInitialSetting(values.a, values.b); }
  bool reload() { return parameters.reloadSetting(held, values.a); }
  unsigned parallelCount(const wchar_t* setting) {
    unsigned count = 999;
    const RegistryKey settings = parameters.openSettings();
    parameters.readSettingParallel(settings.get(), &count, setting, values.a, values.b);
    return count;
  }
  int outputPath() {
    parameters.readHardwareOutputPath();
    return parameters.hardwareOutputPath;
  }

  RegistrySandbox registry;
  CParametersInRegistry parameters;
  RegistryKey held;
  Values values;
};

TEST_F(RegistryTest, ActiveSettingNamesTheSubkey) {
  load();
  EXPECT_FALSE(reload());
  registry.select(L"9");  // tree without the setting's subkey
  load();
  EXPECT_TRUE(reload());
  EXPECT_EQ(values.a, Values().a);
  registry.remove(registry.settingsPath());
  const DWORD binaryName = L'7';  // the bytes of a one-letter text
  const std::wstring longName(20, L'8');
  struct Case {
    const char* what;
    DWORD type;
    const void* data;
    std::size_t size;
    float loaded, reloaded;  // the first value of setting 2, 5, 7, x, 88... is 2, 5, 7, 10, 88
    int number;
  } cases[] = {
      {"missing", REG_NONE, nullptr, 0, 2, 2, 2},
      {"text", REG_SZ, L"5", 4, 5, 5, 5},
      {"another type", REG_DWORD, &binaryName, 4, 7, 2, 2},
      {"not a number", REG_SZ, L"x", 4, 10, 10, 0},
      {"40 bytes without a terminator", REG_BINARY, longName.c_str(), 40, 88, 2, 2},
      {"longer than 40 bytes", REG_SZ, longName.c_str(), 42, 2, 2, 2},
  };
  for (const auto& [name, value] : {std::pair(L"2", 2.0F),
                                    {L"5", 5.0F},
                                    {L"7", 7.0F},
                                    {L"x", 10.0F},
                                    {longName.c_str(), 88.0F}})
    registry.writeSetting(name, 1, 1, [value = value](unsigned) { return value; });
  for (const Case& test : cases) {
    SCOPED_TRACE(test.what);
    if (test.data != nullptr)
      registry.write(registry.settingsPath(), L"ActiveSetting", test.type, test.data, test.size);
    load();
    EXPECT_EQ(values.a[0], test.loaded);
    EXPECT_EQ(values.b[0], test.loaded);
    ASSERT_TRUE(reload());
    EXPECT_EQ(values.a[0], test.reloaded);
    EXPECT_EQ(parameters.activeSettingNumber, test.number);
  }
}

TEST_F(RegistryTest, WholeAndShortSettingsAreCountedAndShortOnesMarkedByTheReloadOnly) {
  EXPECT_EQ(parallelCount(L"absent"), 999U);
  registry.writeSetting(L"whole", 1, rawCount, numbered);
  EXPECT_EQ(parallelCount(L"whole"), rawCount);
  for (unsigned slot = 0; slot < rawCount; ++slot) ASSERT_EQ(values.a[slot], numbered(slot + 1));
  EXPECT_EQ(values.a, values.b);
  values = Values();
  registry.writeSetting(L"2", 1, 323, numbered);
  registry.select(L"2");
  load();
  EXPECT_EQ(values.a[index(Raw::shortSettingMark)], untouched);
  ASSERT_TRUE(reload());
  EXPECT_EQ(values.a[index(Raw::shortSettingMark)], 1.0F);
  EXPECT_EQ(values.a[322], 323.0F);
}

TEST_F(RegistryTest, GapEndsItsChunkButNotTheReload) {
  registry.writeSetting(L"2", 1, 100, numbered);
  EXPECT_EQ(parallelCount(L"2"), 100U + 4760U);  // absolute slot numbers of the empty chunks
  registry.writeSetting(L"2", 102, rawCount, numbered);
  EXPECT_EQ(parallelCount(L"2"), rawCount - 170 + 100);
  EXPECT_EQ(values.a[99], 100.0F);
  EXPECT_EQ(values.a[100], 0.0F);
  EXPECT_EQ(values.a[101], untouched);  // behind the gap, to the end of the chunk
  EXPECT_EQ(values.a[170], 171.0F);
  const RegistryKey setting = CRegistryUtils::openKey(parameters.openSettings().get(), L"2");
  EXPECT_EQ(CParametersInRegistry::readSettingSequential(setting.get(), values.a), 100U);
  EXPECT_EQ(values.a[100], 0.0F);
  EXPECT_EQ(values.a[101], 102.0F);
}

// Values of any type and size: what fits a slot is its bits, all else leaves it alone.
TEST_F(RegistryTest, AnyTypeAndSizeIsRead) {
  RandomRounds rounds(6);
  std::mt19937& random = rounds.random;
  constexpr unsigned written = 60;
  while (rounds.next()) {
    std::array<std::uint32_t, written> expected{};
    for (unsigned slot = 0; slot < written; ++slot) {
      std::array<unsigned char, 64> bytes;
      for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
      const std::size_t size = random() % 3 == 0 ? random() % bytes.size() : random() % 6;
      if (size <= sizeof expected[slot]) std::memcpy(&expected[slot], bytes.data(), size);
      registry.write(registry.settingsPath() + L"\\2", L"Param" + std::to_wstring(slot + 1),
                     random() % 12, bytes.data(), size);
    }
    const std::array<unsigned char, 64> name{static_cast<unsigned char>(random()), 1, 2, 3};
    registry.write(registry.settingsPath(), L"ActiveSetting", random() % 12, name.data(),
                   random() % name.size());
    load();  // of whatever the name says
    reload();
    parallelCount(L"2");
    for (unsigned slot = 0; slot < written; ++slot)
      ASSERT_EQ(std::bit_cast<std::uint32_t>(values.a[slot]), expected[slot])
          << rounds.done() << ": " << slot;
  }
}

TEST_F(RegistryTest, HardwareOutputPathMapsTheChoice) {
  EXPECT_EQ(outputPath(), 3);
  constexpr int expected[] = {3, 0, 1, 2, 1};
  for (DWORD choice = 0; choice < 5; ++choice) {
    registry.write(machine::product, L"HardwareOutputPath", choice);
    EXPECT_EQ(outputPath(), expected[choice]) << choice;
  }
  registry.write(machine::product, L"HardwareOutputPath", std::wstring(L"too long"));
  EXPECT_EQ(outputPath(), 3);
}

TEST_F(RegistryTest, HeadsetOverrideIsTheLastMatchingDevices) {
  const auto device = [this](const wchar_t* number, const std::wstring& driver) {
    const std::wstring path = std::wstring(machine::audioClass) + number;
    registry.write(path, L"Driver", driver);
    registry.write(path + L"\\HeadsetStatus", L"HeadsetStatus", 2);
    return path + L"\\HeadsetStatus";
  };
  const auto first = device(L"\\0000", L"isstrtc.sys"), second = device(L"\\0001", L"isstrtc.sys");
  device(L"\\0002", L"ISSTRTC.SYS");
  device(L"\\0003", std::wstring(126, L'd'));  // 254 bytes, the longest
  device(L"\\0004", L"isstrtc.sys");
  registry.write(std::wstring(machine::audioClass) + L"\\0004", L"Driver", REG_EXPAND_SZ,
                 L"isstrtc.sys", 24);
  const int handles = openHandles();
  registry.write(first, L"HeadsetStatus", 1);
  for (int round = 0; round < 50; ++round) EXPECT_EQ(outputPath(), 0);
  EXPECT_GE(openHandles(), handles + 100);  // of several devices the last one's closes in the end
  constexpr std::array<DWORD, 2> tooLong{2, 2};  // the first stays
  for (const auto& [type, size] : {std::pair<DWORD, DWORD>(REG_SZ, 4), {REG_DWORD, 8}}) {
    registry.write(second, L"HeadsetStatus", type, tooLong.data(), size);
    EXPECT_EQ(outputPath(), 1);
  }
  registry.write(second, L"HeadsetStatus", REG_DWORD, tooLong.data(), 0);
  EXPECT_EQ(outputPath(), 0);
  registry.remove(second);
  EXPECT_EQ(outputPath(), 1);
  EXPECT_FALSE(parameters.headsetStatusKey);
}

TEST_F(RegistryTest, DriverTextBeyondTheRangeEndsTheProcess) {
  constexpr auto rangeCheckFailed = static_cast<int>(0xC0000409);
  registry.write(std::wstring(machine::audioClass) + L"\\0000", L"Driver", REG_SZ,
                 std::wstring(128, L'd').c_str(), 255);
  EXPECT_EXIT(outputPath(), testing::ExitedWithCode(rangeCheckFailed), "");
}

}  // namespace
}  // namespace vellumic::test
