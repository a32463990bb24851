#include "tools/ctl/VolumeCommand.h"

#include <windows.h>

#include <cmath>
#include <cstdio>

#include "control/HandleVolumeNotification.h"
#include "tools/ctl/Microphones.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

// Prints what the reader finds, as an effect that starts now would.
template <class Print>
void withVolume(const std::string& device, Print print) {
  const ComThread com;
  const Microphone microphone = findMicrophone(device, DEVICE_STATE_ACTIVE);
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
