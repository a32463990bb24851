#include "tools/package/InfText.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

// Windows 10 1809, the first that gives every driver its own effects.
constexpr char decoration[] = "NTamd64.10.0...17763";
// Of the version below it; ranks packages of the same version.
constexpr char driverDate[] = "11/21/2026";

// Quoted. A percent sign is doubled, but for the driver store's "%13%" that we put there ourselves.
std::string quotedField(const std::wstring& text) {
  constexpr std::string_view store = "%13%";
  const std::string plain = utf8(text);
  std::string result = "\"";
  for (std::size_t i = 0; i < plain.size(); ++i) {
    if (plain.compare(i, store.size(), store) == 0) {
      result += store;
      i += store.size() - 1;
    } else {
      result.append(plain[i] == '"' || plain[i] == '%' ? 2 : 1, plain[i]);
    }
  }
  return result + '"';
}

std::string line(const std::wstring& key, const std::wstring& name, const RegistryValue& value) {
  std::string text = "HKR," + quotedField(key) + "," + (name.empty() ? "" : quotedField(name));
  switch (value.type) {
    case REG_SZ:
      text += ",0x00000000";
      break;
    case REG_MULTI_SZ:
      text += ",0x00010000";
      break;
    case REG_DWORD: {
      DWORD number = 0;
      std::memcpy(&number, value.data.data(), std::min(value.data.size(), sizeof number));
      std::array<char, 32> field{};
      std::snprintf(field.data(), field.size(), ",0x00010001,0x%08lx", number);
      return text + field.data() + "\r\n";
    }
    default:
      throw CtlError(utf8(key) + ": a value of type " + std::to_string(value.type) +
                     " has no form in the INF yet; add it to InfText.cpp");
  }
  const auto texts = textsOf(value);
  for (const std::wstring& one : texts) text += "," + quotedField(one);
  return text + (texts.empty() ? ",\"\"" : "") + "\r\n";
}

std::string lines(const std::wstring& key, const RegistryValues& values) {
  constexpr char keyOnly[] = ",,0x00000010\r\n";
  if (values.empty()) return "HKR," + quotedField(key) + keyOnly;
  std::string text;
  for (const auto& [name, value] : values) text += line(key, name, value);
  return text;
}

std::string withReturns(const std::string& text) {
  std::string result;
  for (const char c : text) result += c == '\n' ? "\r\n" : std::string(1, c);
  return result;
}

std::string versionSection(const std::string& deviceClass, const std::string& version,
                           const std::string& catalog, const std::string& more) {
  return withReturns("[Version]\nSignature   = \"$WINDOWS NT$\"\n" + deviceClass +
                     "Provider    = %ProviderName%       ; edit in [Strings]\nDriverVer   = " +
                     driverDate + "," + version + ".0.0\nCatalogFile = " + catalog +
                     "\nPnpLockdown = 1\n" + more + "\n[Manufacturer]\n%ProviderName% = Devices," +
                     decoration + "\n\n[Devices." + decoration + "]\n");
}

}  // namespace

std::string componentInf(const std::string& version, const std::vector<InfKey>& keys) {
  std::string text =
      withReturns(
          "; The Vellumic capture effects as a component of an audio driver.\n"
          "; Edit: provider, component id. Then make the catalogue and sign it.\n\n") +
      versionSection(
          "Class       = AudioProcessingObject\n"
          "ClassGuid   = {5989FCE8-9CD0-467D-8A6A-5419E31529D4}\n",
          version, "VellumicAPO.cat", "");
  text += withReturns(std::string("%DeviceName% = Component,SWC\\") + componentId +
                      R"(   ; the extension's AddComponent

[Component.NT]
CopyFiles = Component.Files
AddReg    = Component.Registry

[Component.NT.Services]
AddService = ,2   ; the device needs no service

[DestinationDirs]
Component.Files = 13   ; the driver store

[SourceDisksNames]
1 = %DiskName%

[SourceDisksFiles]
VellumicAPO64c.dll = 1

[Component.Files]
VellumicAPO64c.dll

; Made from the library's own registration: do not edit.
[Component.Registry]
)");
  for (const InfKey& key : keys) text += lines(key.path, key.values);
  return text + withReturns(R"(
[Strings]
ProviderName = "Maker of the device"
DeviceName   = "Vellumic capture effects"
DiskName     = "Vellumic"
)");
}

std::string extensionInf(const std::string& version, const RegistryValues& effects) {
  std::string text =
      withReturns(
          "; Attaches the Vellumic capture effects to the microphone of an audio driver.\n"
          "; Edit: provider, hardware id, extension id, reference string; take out effects\n"
          "; (the value and its modes) that the device is not to have. Then make the catalogue\n"
          "; and sign it.\n\n") +
      versionSection(
          "Class       = Extension\n"
          "ClassGuid   = {E2F84CE7-8EFA-411C-AA69-97454CA4CB57}\n",
          version, "VellumicExtension.cat",
          "ExtensionId = {6C6C5D0A-3C1E-4A55-9E2D-7F4B51D0A9E3}   ; your own, kept for updates\n");
  text += withReturns(std::string("%DeviceName% = Extension,") + hardwareId +
                      "   ; edit: the audio device\n" +
                      R"(
[Extension.NT]

[Extension.NT.Components]
AddComponent = VellumicCapture,,Extension.Component

[Extension.Component]
ComponentIDs = )" + componentId +
                      R"(   ; as in VellumicAPO.inf
Description  = %DeviceName%

[Extension.NT.Interfaces]
AddInterface = %KSCATEGORY_AUDIO%,%CaptureTopology%,Extension.Interface
AddInterface = %KSCATEGORY_TOPOLOGY%,%CaptureTopology%,Extension.Interface

[Extension.Interface]
AddReg = Extension.Effects

; What vellumic-ctl attach writes, by the same code.
[Extension.Effects]
)");
  text += lines(L"FX\\0", effects);
  return text + withReturns(R"(
[Strings]
ProviderName        = "Maker of the device"
DeviceName          = "Vellumic capture effects"
CaptureTopology     = "TopologyCapture"   ; edit: the capture topology filter's reference string
KSCATEGORY_AUDIO    = "{6994AD04-93EF-11D0-A3CC-00A0C9223196}"
KSCATEGORY_TOPOLOGY = "{DDA54A40-1E4C-11D1-A050-405705C10000}"
)");
}

}  // namespace vellumic::tools
