// vellumic-ctl before what others wrote: a status board scribbled over, values of any kind.
#include <windows.h>

#include <array>
#include <atomic>
#include <bit>
#include <thread>

#include "control/Names.h"
#include "control/RegistryUtils.h"
#include "tests/support/MachineNames.h"
#include "tests/support/RandomRounds.h"
#include "tests/support/RunProgram.h"
#include "tests/tools/CommandLine.h"
#include "tools/ctl/RegFile.h"
#include "tools/ctl/RegistryValues.h"
#include "tools/ctl/StatusCollector.h"
#include "tools/ctl/StatusReport.h"

namespace vellumic::tools {
namespace {

void scribble(StatusBlock& block, std::mt19937& random) {
  auto* const bytes = reinterpret_cast<unsigned char*>(&block);
  if (random() % 4 == 0)
    for (std::size_t n = 0; n < sizeof block; ++n) bytes[n] = static_cast<unsigned char>(random());
  for (unsigned n = random() % 64; n > 0; --n)
    bytes[random() % sizeof block] = static_cast<unsigned char>(random());
}

// Every quote and bracket closed, no character that would need an escape, one line.
bool isOneJsonLine(const std::string& text) {
  bool quoted = false;
  int depth = 0;
  for (std::size_t n = 0; n < text.size(); ++n) {
    const char c = text[n];
    if (c >= 0 && c < 32) return false;
    if (quoted && c == '\\')
      ++n;
    else if (c == '"')
      quoted = !quoted;
    else if (!quoted)
      depth += (c == '{' || c == '[') - (c == '}' || c == ']');
  }
  return !quoted && depth == 0;
}

using CtlHostile = InOwnFolder;

TEST_F(CtlHostile, AnyBlockIsReported) {
  RandomRounds rounds(500);
  std::vector<SeenObject> objects(3);
  while (rounds.next()) {
    for (SeenObject& object : objects) {
      scribble(object.block, rounds.random);
      object.alive = rounds.random() % 2 == 0;
    }
    const StatusFacts facts{.objects = objects, .activeSetting = "2"};
    ASSERT_TRUE(isOneJsonLine(statusJson(facts))) << statusJson(facts);
    const std::string table = statusTable(facts);
    ASSERT_TRUE(std::ranges::none_of(table, [](char c) { return c >= 0 && c < 32 && c != '\n'; }));
    ASSERT_FALSE(signalReload({.block = objects[0].block, .alive = true}));
  }
}

TEST_F(CtlHostile, CollectingEndsWhileTheBoardIsScribbledOver) {
  CompanionLink link(CompanionLink::Missing::make);
  const KernelHandle mapping(OpenFileMappingW(FILE_MAP_WRITE, FALSE, sharedMemoryName));
  const MappedView view(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, sizeof(StatusBoard)));
  ASSERT_TRUE(view);
  std::atomic<bool> going{true};
  std::thread vandal([&] {
    std::mt19937 random(15);
    const KernelHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, sharedMemoryEventName));
    while (going) {
      scribble(static_cast<StatusBoard*>(view.get())->block, random);
      SetEvent(event.get());
    }
  });
  StatusCollector collector(link);
  for (int n = 0; n < 3; ++n) collector.collect();
  going = false;
  vandal.join();
  EXPECT_LE(collector.objects().size(), 600U);  // 200 pings each
  EXPECT_EQ(collector.aliveCount(), 0U);
}

// The values of a key that the system's registry editor makes of a file that we wrote.
RegistryValues imported(const std::wstring& text, const std::wstring& path) {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());  // of a run that was ended
  std::ofstream("values.reg", std::ios::binary)
      .write(reinterpret_cast<const char*>(text.data()),
             static_cast<std::streamsize>(text.size() * sizeof(wchar_t)));
  EXPECT_EQ(test::runProgram("regedit /S values.reg"), 0);
  const RegistryKey key = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, path.c_str());
  const RegistryValues values = readValues(key.get(), "key");
  EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str()), ERROR_SUCCESS);
  return values;
}

RegistryValues anyValues(std::mt19937& random) {
  constexpr std::wstring_view letters = L"a1 \"\\[]=@;#{},-%\u00E4\u4E2D";
  RegistryValues values;
  for (int n = 0; n < 200; ++n) {
    std::wstring name;
    for (unsigned length = random() % 12; length > 0; --length)
      name += letters[random() % letters.size()];
    RegistryValue& value = values[name];
    value.type = random() % 12;
    value.data.resize(random() % 4 == 0 ? random() % 3000 : random() % 9);
    for (std::byte& byte : value.data) byte = static_cast<std::byte>(random());
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ) {
      value.data.resize(value.data.size() / 2 * 2);  // Wine's editor ends texts by itself
      value.data.insert(value.data.end(), 4, std::byte{0});
    }
  }
  return values;
}

// Backups of an endpoint and exports of a setting come back bit for bit.
TEST_F(CtlHostile, AnyValuesGoThroughARegistryFile) {
  const std::wstring path = L"SOFTWARE\\VellumicHostile";
  RandomRounds rounds(1);
  while (rounds.next()) {
    const RegistryValues values = anyValues(rounds.random);
    ASSERT_EQ(imported(regFileText(path, values, {}), path), values);

    RawValues written{};
    RegistryValues expected;
    for (std::size_t slot = 0; slot < written.size(); ++slot) {
      const auto bits = static_cast<std::uint32_t>(rounds.random());
      written[slot] = std::bit_cast<float>(bits);
      const auto bytes = std::bit_cast<std::array<std::byte, sizeof bits>>(bits);
      expected[L"Param" + std::to_wstring(slot + 1)] = {.type = REG_DWORD,
                                                        .data = {bytes.begin(), bytes.end()}};
    }
    ASSERT_EQ(imported(regFileText(L"hostile", written),
                       test::machine::settings + std::wstring(L"\\hostile")),
              expected);
  }
}

}  // namespace
}  // namespace vellumic::tools
