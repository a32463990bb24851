// Stands before the system's device enumerator inside this process, for what the platform or the
// occasion lacks: a loopback that plays a file in step with the stream, a loopback taken from a
// microphone that hears the loudspeaker (a monitor), and volumes per channel.
//
// While one lives, every CoCreateInstance of the enumerator gets the proxy, on threads of the
// multithreaded apartment. What is not replaced goes to the real devices.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <atomic>
#include <optional>

#include "tools/WaveFile.h"
#include "tools/host/Endpoints.h"
#include "tools/render/FarSource.h"

namespace vellumic::tools {

struct Replacements {
  const WaveData* far = nullptr;       // the default loudspeaker's loopback plays this
  const StreamClock* clock = nullptr;  // set before each call; the file's packets follow it
  Endpoint monitor;                    // or the loopback is this microphone
  std::optional<float> volume;         // linear, of every channel of every endpoint
};

class ProxyEnumerator {
 public:
  // All that `replacements` points to outlives the proxy.
  ProxyEnumerator(ComPtr<IMMDeviceEnumerator> real, Replacements replacements);
  ~ProxyEnumerator();
  ProxyEnumerator(const ProxyEnumerator&) = delete;
  ProxyEnumerator& operator=(const ProxyEnumerator&) = delete;

  // Waits until an effect has started the replaced loopback; false after the time.
  bool waitForLoopback(DWORD milliseconds) const;

 private:
  DWORD registration_ = 0;
  std::atomic<bool> started_{false};
};

// Whether effects can read an endpoint's channel volumes, and record what a loudspeaker plays.
bool hasChannelVolumes(const Endpoint& endpoint);
bool hasLoopback(IMMDeviceEnumerator& enumerator);

}  // namespace vellumic::tools
