// A microphone of the test's own in the machine's registry, and its effect properties in short.
#pragma once

#include <objbase.h>

#include <map>
#include <optional>

#include "control/BoundedText.h"
#include "tests/apo/ApoWorld.h"
#include "tests/tools/CtlRun.h"
#include "tools/ctl/Attachment.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {

// "6=driver m6=raw,speech 14=driver,mfx" is a class in a place, modes of a place, and a chain;
// "m6=all" all modes, "6=#" a value of a type that nobody writes there.
inline RegistryValues effectValues(const std::string& text) {
  const std::wstring classes = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},",
                     modes = L"{d3993a3f-99c2-4402-b5ec-a92a0367664b},";
  const std::map<std::string, std::wstring> names{
      {"driver", L"{AAAAAAAA-1111-2222-3333-444444444444}"},
      {"other", L"{BBBBBBBB-1111-2222-3333-444444444444}"},
      {"null", GuidText(GUID{}).c_str()},
      {"efx", GuidText(test::efx.id).c_str()},
      {"mfx", GuidText(test::mfx.id).c_str()},
      {"kdmfx", GuidText(test::kdmfx.id).c_str()},
      {"default", GuidText(test::mode::standard).c_str()},
      {"raw", GuidText(test::mode::raw).c_str()},
      {"speech", GuidText(test::mode::speech).c_str()},
      {"communications", GuidText(test::mode::communications).c_str()}};
  RegistryValues values;
  for (const std::string& word : split(text, ' ')) {
    const std::string place = word.substr(0, word.find('=')), what = word.substr(place.size() + 1);
    const bool mode = place[0] == 'm';
    RegistryValue& value = values[(mode ? modes : classes) + wide(place.substr(mode))];
    std::vector<std::wstring> texts;
    for (const std::string& name : split(what == "all" ? "default,raw,speech" : what, ','))
      if (name != "#") texts.push_back(names.at(name));
    if (texts.empty())
      value = {.type = REG_BINARY, .data = {std::byte{'{'}, {}, std::byte{'x'}}};
    else
      value = mode || place.size() == 2 ? textsValue(texts) : textValue(texts[0]);
  }
  return values;
}

inline void writeEffects(const std::wstring& endpoint, const RegistryValues& values) {
  RegistryKey key;
  const std::wstring path = test::machine::captureEndpoints + endpoint + L"\\FxProperties";
  ASSERT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, path.c_str(), key.put()), ERROR_SUCCESS);
  for (const auto& [name, value] : values)
    ASSERT_EQ(writeValue(key.get(), name, value), ERROR_SUCCESS);
}

// Its backups go into the current folder.
class Endpoint {
 public:
  // Without effect properties, or with these.
  explicit Endpoint(const std::optional<RegistryValues>& before = std::nullopt) {
    GUID id{};
    EXPECT_EQ(CoCreateGuid(&id), S_OK);
    guid = GuidText(id).c_str();
    EXPECT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, path().c_str(), key_.put()), ERROR_SUCCESS);
    if (before) writeEffects(guid, *before);
  }
  ~Endpoint() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (test::machine::attachments + guid).c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, path().c_str());
  }
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  [[nodiscard]] std::wstring path() const { return test::machine::captureEndpoints + guid; }
  [[nodiscard]] std::optional<RegistryValues> values() const { return readEffectProperties(guid); }
  [[nodiscard]] std::string attaching(const std::string& options) const {
    return "attach " + utf8(guid) + " --backup " + backup + ' ' + options;
  }
  ToolRun attach(const std::string& options = "") const {
    std::filesystem::remove(backup);
    return ctl(attaching(options));
  }
  ToolRun detach() const { return ctl("detach " + utf8(guid)); }

  std::wstring guid;
  std::string backup = "before.reg";

 private:
  RegistryKey key_;
};

}  // namespace vellumic::tools
