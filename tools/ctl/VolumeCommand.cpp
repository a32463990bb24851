#include "tools/ctl/VolumeCommand.h"

#include <windows.h>

#include <cmath>
#include <cstdio>

#include "control/ComPtr.h"
#include "control/DeviceProperties.h"
#include "control/HandleVolumeNotification.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr PROPERTYKEY friendlyNameKey = {
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};

class Apartment {
 public:
  Apartment() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~Apartment() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;

 private:
  HRESULT result_;
};

struct Microphone {
  std::wstring id, name;
};

Microphone describe(IMMDevice& device) {
  Microphone microphone;
  wchar_t* id = nullptr;
  if (SUCCEEDED(device.GetId(&id)) && id != nullptr) microphone.id = id;
  CoTaskMemFree(id);
  ComPtr<IPropertyStore> properties;
  PropertyValue name;
  if (SUCCEEDED(device.OpenPropertyStore(STGM_READ, properties.put())) &&
      SUCCEEDED(properties->GetValue(friendlyNameKey, name.put())) && name.text())
    microphone.name = name.text();
  return microphone;
}

Microphone findMicrophone(const std::string& wanted) {
  HRESULT result = S_OK;
  const auto enumerator = createDeviceEnumerator(result);
  if (!enumerator) throw CtlError("audio devices: cannot be listed; is the audio service running?");
  ComPtr<IMMDevice> device;
  if (wanted.empty()) {
    if (FAILED(enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, device.put())))
      throw CtlError("default microphone: there is none; connect one or name DEVICE");
    return describe(*device.get());
  }
  ComPtr<IMMDeviceCollection> all;
  UINT count = 0;
  if (SUCCEEDED(enumerator->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, all.put())))
    all->GetCount(&count);
  for (UINT i = 0; i < count; ++i) {
    if (FAILED(all->Item(i, device.put()))) continue;
    Microphone microphone = describe(*device.get());
    const std::wstring part = wide(wanted);
    if (microphone.name.find(part) != std::wstring::npos ||
        microphone.id.find(part) != std::wstring::npos)
      return microphone;
  }
  throw CtlError("device " + wanted + ": no active microphone has this in its name or id (" +
                 std::to_string(count) + " are active)");
}

// Prints what the reader finds, as an effect that starts now would.
template <class Print>
void withVolume(const std::string& device, Print print) {
  const Apartment apartment;
  const Microphone microphone = findMicrophone(device);
  CHandleVolumeNotification volume;
  volume.add([](const std::wstring&) {}, nullptr, microphone.id);
  std::printf("%s  %s\n", utf8(microphone.name).c_str(), utf8(microphone.id).c_str());
  print(volume, microphone.id);
}

void printGain(const char* name, float gain) {
  if (gain > 0.0F)
    std::printf("%-14s %.5f  %.1f dB\n", name, static_cast<double>(gain),
                20.0 * std::log10(static_cast<double>(gain)));
  else
    std::printf("%-14s 0\n", name);
}

}  // namespace

void showVolume(const std::string& device) {
  withVolume(device, [](const CHandleVolumeNotification& volume, const std::wstring& id) {
    const Volumes gains = volume.volumes(id);
    printGain("master", gains.master);
    printGain("first channel", gains.first);
    printGain("second channel", gains.second);
    if (volume.channelCount(id) == 0)
      std::puts("Its volume control is missing or cannot be read; this is what effects then see.");
  });
}

void showMute(const std::string& device) {
  withVolume(device, [](const CHandleVolumeNotification& volume, const std::wstring& id) {
    std::puts(volume.isMuted(id) ? "muted" : "not muted");
  });
}

}  // namespace vellumic::tools
