// The INF files as built, through the system's setup functions.
#include <windows.h>

#include <setupapi.h>

#include <set>

#include "tests/apo/RegistryTree.h"
#include "tests/tools/AttachEndpoint.h"

namespace vellumic::tools {
namespace {

using Fields = std::vector<std::wstring>;  // the key of the line first

struct Inf {
  explicit Inf(const std::string& name)
      : handle(SetupOpenInfFileW(wide("Z:" VELLUMIC_PACKAGE "\\" + name).c_str(), nullptr,
                                 INF_STYLE_WIN4, nullptr)) {
    EXPECT_NE(handle, INVALID_HANDLE_VALUE) << name << " " << GetLastError();
  }
  ~Inf() { SetupCloseInfFile(handle); }
  Inf(const Inf&) = delete;
  Inf& operator=(const Inf&) = delete;

  // Substituted; empty where the section is missing or empty.
  [[nodiscard]] std::vector<Fields> lines(const std::wstring& section) const {
    std::vector<Fields> all;
    INFCONTEXT line{};
    for (BOOL more = SetupFindFirstLineW(handle, section.c_str(), nullptr, &line); more;
         more = SetupFindNextLine(&line, &line)) {
      Fields fields;
      for (DWORD i = 0; i <= SetupGetFieldCount(&line); ++i) {
        std::array<wchar_t, 512> text{};
        SetupGetStringFieldW(&line, i, text.data(), text.size(), nullptr);
        fields.emplace_back(text.data());
      }
      all.push_back(fields);
    }
    return all;
  }
  [[nodiscard]] std::wstring value(const std::wstring& section, const std::wstring& key) const {
    for (const Fields& fields : lines(section))
      if (fields.at(0) == key) return fields.at(1);
    return {};
  }
  [[nodiscard]] test::RegistryTree written(const std::wstring& section) const {
    const test::ScratchKey scratch;
    EXPECT_TRUE(SetupInstallFromInfSectionW(nullptr, handle, section.c_str(), SPINST_REGISTRY,
                                            scratch.root(), nullptr, 0, nullptr, nullptr, nullptr,
                                            nullptr))
        << GetLastError();
    return treeOf(scratch);
  }

  const HINF handle;
};

TEST(DriverPackage, BothParseAndReferToSectionsThatExist) {
  const std::wstring models = L"Devices.NTamd64.10.0...17763", files = L"Component.Files";
  const Inf component("VellumicAPO.inf"), extension("VellumicExtension.inf");
  for (const Inf* inf : {&component, &extension}) {
    const Fields maker = inf->lines(L"Manufacturer").at(0);
    EXPECT_EQ(maker.at(1) + L"." + maker.at(2), models);
    ASSERT_EQ(inf->lines(models).size(), 1U);
    // The sections that each directive names, by the position of their names.
    const std::wstring install = inf->lines(models)[0].at(1) + L".NT";
    std::set<std::wstring> named{install};
    for (const Fields& line : inf->lines(install)) named.insert(line.begin() + 1, line.end());
    for (const wchar_t* kind : {L".Components", L".Interfaces"})
      for (const Fields& line : inf->lines(install + kind)) named.insert(line.at(3));
    for (const std::wstring& section : std::set(named))
      for (const Fields& line : inf->lines(section))
        if (line.at(0) == L"AddReg") named.insert(line.at(1));
    for (const std::wstring& section : named)
      EXPECT_GE(SetupGetLineCountW(inf->handle, section.c_str()), 0) << utf8(section);
    EXPECT_EQ(named.contains(files), inf == &component);
  }
  EXPECT_EQ(component.value(L"DestinationDirs", files), L"13");
  for (const Fields& file : component.lines(files)) {
    const std::wstring disk = component.value(L"SourceDisksFiles", file.at(1));
    EXPECT_FALSE(component.value(L"SourceDisksNames", disk).empty());
    EXPECT_TRUE(std::filesystem::exists(test::programFolder() / file.at(1)));
  }
  EXPECT_EQ(component.value(L"Version", L"ClassGuid"), L"{5989FCE8-9CD0-467D-8A6A-5419E31529D4}");
  EXPECT_EQ(extension.value(L"Version", L"ClassGuid"), L"{E2F84CE7-8EFA-411C-AA69-97454CA4CB57}");
  EXPECT_FALSE(extension.value(L"Version", L"ExtensionId").empty());
  // The extension makes the device that the component is for.
  EXPECT_EQ(component.lines(models).at(0).at(2),
            L"SWC\\" + extension.value(L"Extension.Component", L"ComponentIDs"));
  std::set<std::wstring> categories;
  for (const Fields& line : extension.lines(L"Extension.NT.Interfaces"))
    categories.insert(line.at(1));
  EXPECT_EQ(categories, (std::set<std::wstring>{L"{6994AD04-93EF-11D0-A3CC-00A0C9223196}",
                                                L"{DDA54A40-1E4C-11D1-A050-405705C10000}"}));
}

TEST(DriverPackage, ComponentWritesWhatRegistrationWrites) {
  test::RegistryTree registered, installed = Inf("VellumicAPO.inf").written(L"Component.NT");
  {
    const test::ScratchKey classes(HKEY_CLASSES_ROOT);
    EXPECT_EQ(test::exported<HRESULT WINAPI()>("DllRegisterServer")(), S_OK);
    registered = treeOf(classes);
  }
  // Paths apart: classes lie below Classes, and files in folders of their own.
  test::RegistryTree expected;
  for (const auto& [path, values] : registered)
    expected[path.starts_with(L"\\AudioEngine") ? path : L"\\Classes" + path] = values;
  std::size_t paths = 0;
  for (auto* tree : {&expected, &installed})
    for (auto& [path, values] : *tree)
      for (auto& [name, value] : values)
        if (const auto texts = textsOf(value); !texts.empty() && texts[0].find(L":\\") == 1) {
          const auto slash = texts[0].rfind(L'\\');
          value = textValue(texts[0].ends_with(L".dll") ? texts[0].substr(slash + 1) : L"folder");
          ++paths;
        }
  EXPECT_EQ(paths, 2 * (3 + 2));  // three classes, the type library and its folder
  EXPECT_GE(expected.size(), 14U);
  EXPECT_EQ(installed, expected);
}

TEST(DriverPackage, ExtensionAttachesAllThreeEffects) {
  const auto expected = effectValues("0=null 6=mfx m6=all 7=efx m7=all 9=kdmfx m9=all");
  EXPECT_EQ(Inf("VellumicExtension.inf").written(L"Extension.Interface"),
            (test::RegistryTree{{L"\\FX\\0", expected}}));
}

}  // namespace
}  // namespace vellumic::tools
