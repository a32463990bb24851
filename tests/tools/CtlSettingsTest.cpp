// vellumic-ctl settings, in a registry of the test's own.
#include <bit>
#include <thread>

#include "parameters/Catalogue.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/tools/CtlRun.h"
#include "tools/ctl/RegFile.h"
#include "tools/ctl/SettingsTree.h"

namespace vellumic::tools {
namespace {

constexpr std::size_t unread = 500;  // a slot that nothing reads

class CtlSettings : public InOwnFolder {
 protected:
  static RawValues stored(const std::wstring& setting) {
    return SettingsTree::read(setting).value_or(StoredSetting{}).values;
  }
  static ToolRun done(const std::string& words) { return succeeded(ctl("settings " + words)); }
  static float stored(const std::wstring& setting, Raw slot) {
    return stored(setting)[index(slot)];
  }

  test::RegistrySandbox registry;
};

TEST_F(CtlSettings, ApplyMakesTheTree) {
  text("quiet.toml", "[noise]\nenabled = false\ngain.floor1_db = -20\n");
  expectParts(done("apply quiet.toml").printed, {"Created HKEY_LOCAL_MACHINE\\SOFTWARE\\Mirandor"});
  EXPECT_EQ(SettingsTree::names(), std::vector<std::wstring>{L"2"});
  EXPECT_FLOAT_EQ(stored(L"2", Raw::gainFloor1), 0.1F);
  EXPECT_EQ(stored(L"2", Raw::noisePostfilter), 0.0F);
  EXPECT_EQ(stored(L"2", Raw::masterEnable), 1.0F);
}

TEST_F(CtlSettings, TwoChangesAtOnceLoseNothing) {
  registry.writeSetting(L"2", factorySettings());
  registry.select(L"2");
  std::thread other;
  {
    SettingsWriter writer;  // as another vellumic-ctl at work
    other = std::thread([] { done("set noise.enabled=false"); });
    Sleep(200);
    RawValues values = stored(L"2");
    values[index(Raw::beamformer)] = 0.0F;
    writer.replace(L"2", values);
  }
  other.join();
  EXPECT_EQ(stored(L"2", Raw::noisePostfilter), 0.0F);
  EXPECT_EQ(stored(L"2", Raw::beamformer), 0.0F);
}

TEST_F(CtlSettings, SetKeepsEverythingElse) {
  RawValues values = factorySettings();
  values[unread] = 7.0F;
  registry.writeSetting(L"5", values);
  registry.writeSetting(L"2", factorySettings());
  registry.select(L"2");
  EXPECT_EQ(done("set 5 noise.enabled=off limiter.level_db=-6 --fade").complained,
            "note: the speech mode runs noise suppression, although noise.enabled is off\n");
  EXPECT_EQ(SettingsTree::activeName(), L"5");
  values[index(Raw::noisePostfilter)] = 0.0F;
  values[index(Raw::limiterLevel)] = stored(L"5", Raw::limiterLevel);
  values[index(Raw::fadeRequest)] = 1.0F;
  EXPECT_NEAR(values[index(Raw::limiterLevel)], 0.5012F, 1e-4F);
  EXPECT_EQ(stored(L"5"), values);
  EXPECT_EQ(stored(L"2"), factorySettings());
  // A fade is asked for with each change.
  done("set beamformer.enabled=false");
  EXPECT_EQ(stored(L"5", Raw::fadeRequest), 0.0F);
  done("activate 2");
  EXPECT_EQ(SettingsTree::activeName(), L"2");
}

TEST_F(CtlSettings, ExportsCarryEveryValue) {
  RawValues values = factorySettings();
  values[index(Raw::echoReservedFloor)] = 1.0F / 3.0F;
  values[index(bandSlot(1, 9, BandField::type))] = 6.0F;
  registry.writeSetting(L"4", values);
  done("export 4 all.toml");
  done("apply all.toml 6");
  EXPECT_EQ(stored(L"6"), values);

  values[unread] = std::bit_cast<float>(0x7FC12345U);
  registry.writeSetting(L"4", values);
  expectParts(done("export 4 all.toml").complained, {"warning: 1 stored without a name"});
  done("export 4 all.reg");
  const std::wstring expected = regFileText(L"4", values);
  EXPECT_EQ(contents("all.reg"),
            std::string(reinterpret_cast<const char*>(expected.data()), 2 * expected.size()));
}

TEST_F(CtlSettings, ShortSettingIsReadAsTheEffectsReadIt) {
  registry.writeSetting(L"2", 1, 323, [](unsigned) { return 0.0F; });
  EXPECT_EQ(SettingsTree::read(L"2")->stored, 323U);
  done("set noise.enabled=true");
  EXPECT_EQ(SettingsTree::read(L"2")->stored, unsigned{rawCount});
  EXPECT_EQ(stored(L"2", Raw::shortSettingMark), 1.0F);
}

TEST_F(CtlSettings, FaultsAreOneLineAndChangeNothing) {
  registry.writeSetting(L"2", factorySettings());
  registry.writeSetting(L"3", factorySettings());
  registry.select(L"2");
  text("broken.toml", "[noise]\nenabled = false\nenabld = true\n");
  const std::pair<std::string, const char*> cases[] = {
      {"settings set beamformer.enabled=false noise.enabld=false", "did you mean noise.enabled"},
      {"settings set 3", "nothing to set"},
      {"settings set 9 noise.enabled=false", "Settings\\9: no such setting"},
      {"settings set x noise.enabled=false", "setting x: no such number"},
      {"settings apply broken.toml 3", "broken.toml:3: noise.enabld"},
      {"settings apply none.toml", "none.toml: cannot be read"},
      {"settings apply broken.toml 1234567890", "write N as 0 to 999999999"},
      {"settings export no/where.toml", "cannot be written"},
  };
  for (const auto& [words, complaint] : cases) {
    const ToolRun run = ctl(words);
    expectRefusal(run, complaint);
    EXPECT_EQ(run.printed, "");
  }
  EXPECT_EQ(SettingsTree::activeName(), L"2");
  for (const wchar_t* setting : {L"2", L"3"}) EXPECT_EQ(stored(setting), factorySettings());
  EXPECT_EQ(SettingsTree::names(), (std::vector<std::wstring>{L"2", L"3"}));
}

}  // namespace
}  // namespace vellumic::tools
