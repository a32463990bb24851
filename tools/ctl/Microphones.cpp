#include "tools/ctl/Microphones.h"

#include <audioclient.h>

#include <algorithm>
#include <cstring>

#include "control/DeviceProperties.h"
#include "control/Names.h"
#include "control/RegistryUtils.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/RegistryValues.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr PROPERTYKEY friendlyNameKey = {
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};

std::wstring textProperty(IPropertyStore& store, REFPROPERTYKEY key) {
  PropertyValue value;
  const bool read = SUCCEEDED(store.GetValue(key, value.put())) && value.text() != nullptr;
  return read ? value.text() : L"";
}

Microphone describe(ComPtr<IMMDevice> device) {
  Microphone microphone;
  wchar_t* id = nullptr;
  if (SUCCEEDED(device->GetId(&id)) && id != nullptr) microphone.id = id;
  CoTaskMemFree(id);
  device->GetState(&microphone.state);
  ComPtr<IPropertyStore> properties;
  if (SUCCEEDED(device->OpenPropertyStore(STGM_READ, properties.put()))) {
    microphone.name = textProperty(*properties.get(), friendlyNameKey);
    microphone.guid = textProperty(*properties.get(), endpointGuidKey);
  }
  if (const auto dot = microphone.id.rfind(L'.');
      microphone.guid.empty() && dot != std::wstring::npos)
    microphone.guid = microphone.id.substr(dot + 1);
  microphone.device = std::move(device);
  return microphone;
}

bool isGuid(const std::wstring& text) {
  return text.size() == 38 && text.front() == L'{' && text.back() == L'}' &&
         parseBracedGuid(text.c_str());
}

bool hasKey(const std::wstring& guid) {
  return static_cast<bool>(
      CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, (captureEndpointsPath + guid).c_str()));
}

Microphone defaultMicrophone() {
  HRESULT result = S_OK;
  const auto enumerator = createDeviceEnumerator(result);
  ComPtr<IMMDevice> device;
  if (!enumerator || FAILED(enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, device.put())))
    throw CtlError("default microphone: there is none; connect one or name it");
  return describe(std::move(device));
}

}  // namespace

EndpointMixFormat mixFormatOf(IMMDevice& device) {
  EndpointMixFormat format;
  ComPtr<IAudioClient> client;
  format.result = device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.putVoid());
  if (FAILED(format.result)) return format;
  WAVEFORMATEX* mix = nullptr;
  format.result = client->GetMixFormat(&mix);
  if (SUCCEEDED(format.result) && mix != nullptr)
    std::memcpy(&format.wave, mix,
                std::min(sizeof format.wave, sizeof(WAVEFORMATEX) + std::size_t{mix->cbSize}));
  CoTaskMemFree(mix);
  return format;
}

std::string formatText(const WAVEFORMATEXTENSIBLE& wave) {
  const WAVEFORMATEX& format = wave.Format;
  const bool extensible = format.wFormatTag == WAVE_FORMAT_EXTENSIBLE;
  const bool isFloat = format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT ||
                       (extensible && wave.SubFormat.Data1 == WAVE_FORMAT_IEEE_FLOAT);
  std::string text = std::to_string(format.nChannels) +
                     (format.nChannels == 1 ? " channel, " : " channels, ") +
                     std::to_string(format.nSamplesPerSec) + " Hz, " +
                     std::to_string(format.wBitsPerSample) + (isFloat ? "-bit float" : "-bit");
  if (extensible) {
    char mask[32];
    std::snprintf(mask, sizeof mask, ", speakers 0x%lx",
                  static_cast<unsigned long>(wave.dwChannelMask));
    text += mask;
  }
  return text;
}

const char* stateText(DWORD state) {
  switch (state) {
    case DEVICE_STATE_ACTIVE:
      return "active";
    case DEVICE_STATE_DISABLED:
      return "disabled";
    case DEVICE_STATE_NOTPRESENT:
      return "not present";
    case DEVICE_STATE_UNPLUGGED:
      return "unplugged";
    default:
      return "unknown";
  }
}

std::vector<Microphone> microphones(DWORD stateMask) {
  HRESULT result = S_OK;
  const auto enumerator = createDeviceEnumerator(result);
  ComPtr<IMMDeviceCollection> all;
  UINT count = 0;
  if (!enumerator || FAILED(enumerator->EnumAudioEndpoints(eCapture, stateMask, all.put())) ||
      FAILED(all->GetCount(&count)))
    throw CtlError("audio devices: cannot be listed; is the audio service (Audiosrv) running?");
  std::vector<Microphone> found;
  for (UINT i = 0; i < count; ++i) {
    ComPtr<IMMDevice> device;
    if (SUCCEEDED(all->Item(i, device.put()))) found.push_back(describe(std::move(device)));
  }
  return found;
}

Microphone findMicrophone(const std::string& wanted, DWORD stateMask) {
  if (wanted.empty()) return defaultMicrophone();
  const std::wstring text = wide(wanted);
  std::vector<Microphone> all, matching;
  try {
    all = microphones(stateMask);
  } catch (const CtlError&) {
    if (!isGuid(text) || !hasKey(text)) throw;
  }
  std::string names;
  for (Microphone& one : all) {
    if (sameText(one.id, text) || sameText(one.guid, text)) return std::move(one);
    names += (names.empty() ? "" : ", ") + utf8(one.name);
    if (one.name.find(text) != std::wstring::npos || one.id.find(text) != std::wstring::npos)
      matching.push_back(std::move(one));
  }
  if (matching.size() == 1) return std::move(matching.front());
  if (matching.empty() && isGuid(text) && hasKey(text))
    return {.device = {}, .id = {}, .name = L"(not shown by the audio service)", .guid = text};
  if (matching.empty())
    throw CtlError(
        "device " + wanted + ": no " + (stateMask == DEVICE_STATE_ACTIVE ? "active " : "") +
        "microphone has this in its name or id; there are: " + (names.empty() ? "none" : names));
  names.clear();
  for (const Microphone& one : matching)
    names += (names.empty() ? "" : ", ") + utf8(one.name) + " " + utf8(one.guid);
  throw CtlError("device " + wanted +
                 ": several have this in their name; write one of the ids: " + names);
}

}  // namespace vellumic::tools
