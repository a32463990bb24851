// vellumic-ctl beside real effects: the library as built, in this process.
#include <ranges>
#include <thread>

#include "control/BoundedText.h"
#include "control/OpenEvent.h"
#include "control/SharedMemoryAccessHandler.h"
#include "tests/apo/ApoWorld.h"
#include "tests/tools/CtlRun.h"
#include "tools/ctl/SettingsTree.h"
#include "tools/ctl/StatusCollector.h"

namespace vellumic::tools {
namespace {

using test::CaptureObject;

class CtlEffects : public test::ApoWorld {
 protected:
  CtlEffects() { writeFactorySettings(); }
};

std::ptrdiff_t countOf(const std::string& text, const std::string& part) {
  return std::ranges::distance(std::views::split(text, part)) - 1;
}

bool boardExists() {
  return static_cast<bool>(KernelHandle(OpenEventW(SYNCHRONIZE, FALSE, test::machine::boardEvent)));
}

TEST_F(CtlEffects, StatusSeesThreeComeAndGo) {
  ToolRun watched{};
  std::thread watching([&] { watched = ctl("status --watch --json --seconds 4"); });
  for (int i = 0; i < 500 && !boardExists(); ++i) Sleep(2);
  {
    std::array<CaptureObject, 3> objects{initialized(test::efx), initialized(test::mfx),
                                         initialized(test::kdmfx, test::mode::speech)};
    Sleep(1500);
    objects[1] = CaptureObject();
    Sleep(700);
  }
  watching.join();
  const std::vector<std::string> reports = split(watched.printed, '\n');

  const auto alive = [](const std::string& report) { return countOf(report, "\"alive\": true"); };
  const auto all = std::ranges::find(reports, 3, alive);
  ASSERT_NE(all, reports.end());
  expectParts(*all,
              {"{\"active\": true, \"setting\": \"1\"", "\"class\": \"CVellumicAPOCaptureEFX\"",
               "\"class\": \"CVellumicAPOCaptureMFX\"", "\"class\": \"CVellumicAPOCaptureKDMFX\"",
               "\"mode\": \"speech\", \"rateHz\": 48000", "\"version\": \"3.18\"",
               "\"endpoint\": \"{11111111-2222-3333-4444-555555555555}\"",
               "\"propertyEvent\": \"Global\\\\VellumicAPOPropEvent{"});
  EXPECT_NE(std::ranges::find(all, reports.end(), 2, alive), reports.end());
  EXPECT_EQ(alive(reports.back()), 0);
  EXPECT_EQ(countOf(reports.back(), "\"alive\": false"), 3);
}

TEST_F(CtlEffects, StatusJoinsABoardOfSomebodyElse) {
  const test::ServiceObjects service;
  const CaptureObject first = initialized(test::efx), second = initialized(test::mfx);
  // On a busy machine one of them may not come to publish in time.
  const auto statusOfBoth = [] {
    std::string printed;
    for (int asked = 0; asked < 20 && printed.find("2 effects run") == printed.npos; ++asked)
      printed = ctl("status").printed;
    return printed;
  };
  expectParts(statusOfBoth(),
              {"CVellumicAPOCaptureEFX  alive  mode default  48000 Hz",
               "CVellumicAPOCaptureMFX  alive", "Active: yes, 2 effects run with setting 1.\n"});
  succeeded(ctl("settings set engine.enabled=off"));
  expectParts(statusOfBoth(), {"Active: no, 2 effects run but"});
}

TEST_F(CtlEffects, EffectsAreToldOnceAndAfterTheWrite) {
  const test::ServiceObjects service;
  constexpr wchar_t name[] = L"Global\\VellumicAPOPropEvent{test}";
  const KernelHandle event = createOpenEvent(name);
  CSharedMemoryAccessHandler effect;
  ASSERT_TRUE(effect.open());
  effect.updateStatus([&](StatusBlock& block) {
    block.instance.Data1 = block.alive = block.propertyEventPresent = 1;
    copyText(block.propertyEvent, name);
  });
  effect.publishStatus();
  int told = 0;
  std::optional<StoredSetting> written;
  std::thread listening([&] {
    for (; WaitForSingleObject(event.get(), told == 0 ? 10000 : 500) == WAIT_OBJECT_0; ++told)
      written = SettingsTree::read(SettingsTree::activeName());
  });
  expectParts(ctl("settings set noise.enabled=false").printed,
              {"Told 1 running effect to read it."});
  listening.join();
  EXPECT_EQ(told, 1);
  ASSERT_TRUE(written);
  EXPECT_EQ(written->values[index(Raw::noisePostfilter)], 0.0F);
}

}  // namespace
}  // namespace vellumic::tools
