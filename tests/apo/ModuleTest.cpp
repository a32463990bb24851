// The file as it ships: sections, resources, the linker's map.
#include <fstream>
#include <set>
#include <span>
#include <sstream>
#include <string_view>

#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

struct Section {
  const BYTE *begin = nullptr, *end = nullptr;
  DWORD flags = 0;
  bool holds(const void* address) const { return address >= begin && address < end; }
};
Section section(std::string_view name) {
  const auto* base = reinterpret_cast<const BYTE*>(library());
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  for (const auto& s :
       std::span(IMAGE_FIRST_SECTION(headers), headers->FileHeader.NumberOfSections))
    if (name == std::string_view(reinterpret_cast<const char*>(s.Name),
                                 strnlen(reinterpret_cast<const char*>(s.Name), sizeof s.Name)))
      return {base + s.VirtualAddress, base + s.VirtualAddress + s.Misc.VirtualSize,
              s.Characteristics};
  return {};
}

TEST(Module, CarriesItsVersionAndNoManifest) {
  // A manifest would keep it out of the protected audio process.
  EXPECT_EQ(FindResourceW(library(), MAKEINTRESOURCEW(2), MAKEINTRESOURCEW(24)), nullptr);
  const HRSRC version = FindResourceW(library(), MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
  ASSERT_NE(version, nullptr);
  const auto* words = static_cast<const DWORD*>(LockResource(LoadResource(library(), version)));
  const auto* fixed = reinterpret_cast<const VS_FIXEDFILEINFO*>(words + 10);
  ASSERT_EQ(fixed->dwSignature, 0xFEEF04BD);
  EXPECT_EQ(fixed->dwFileVersionMS, (3U << 16) + 18);
}

// The audio engine holds these pages in memory for the real-time thread.
TEST(Module, WhatTheRealTimeThreadTouchesIsResident) {
  const Section code = section("RT_CODE"), tables = section("RT_CONST"), data = section("RT_DATA");
  EXPECT_EQ(code.flags & (IMAGE_SCN_MEM_EXECUTE | IMAGE_SCN_MEM_WRITE), IMAGE_SCN_MEM_EXECUTE);
  EXPECT_EQ(tables.flags & (IMAGE_SCN_MEM_EXECUTE | IMAGE_SCN_MEM_WRITE), 0U);
  EXPECT_NE(data.flags & IMAGE_SCN_MEM_WRITE, 0U);
  EXPECT_GE(data.end - data.begin, 3 * 0x444);
  FakeSystem system;
  for (const ClassCase& which : classCases) {
    const CaptureObject object(which.id);
    const auto* const* table = *reinterpret_cast<const void* const* const*>(object.realTime.get());
    EXPECT_TRUE(tables.holds(table)) << which.name;
    for (int slot = 3; slot < 6; ++slot) EXPECT_TRUE(code.holds(table[slot])) << slot;
  }
}

// By the linker's map: lines of an address, as the library prefers it, and a function.
TEST(Module, TheMapShowsTheFrameCoreInItsSection) {
  std::ifstream map(programFolder().parent_path() / "VellumicAPO64c.map");
  std::set<std::string> functions{
      "non-virtual thunk to vellumic::CBaseAudioProcessingObject::"
      "APOProcess",
      "vellumic::CBaseAudioProcessingObject::APOProcess",
      "vellumic::admitCall",
      "vellumic::runCall",
      "vellumic::processBlock",
      "vellumic::forwardFrames",
      "vellumic::fadeFrames",
      "vellumic::passThroughFrames",
      "vellumic::applyEffect",
      "vellumic::stepFade",
      "vellumic::swapSets"};
  std::uint64_t begin = 0, size = 0, address = 0;
  for (std::string line, word; std::getline(map, line);) {
    std::istringstream words(line);
    if (line.starts_with("RT_CODE")) {
      words >> word >> std::hex >> begin >> size;
    } else if (words >> std::hex >> address && std::getline(words >> std::ws, word)) {
      const bool resident = address >= begin && address < begin + size;
      if (resident) functions.erase(word.substr(0, word.find('(')));
    }
  }
  EXPECT_EQ(functions, std::set<std::string>{});
}

}  // namespace
}  // namespace vellumic::test
