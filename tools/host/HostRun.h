// One run of the host: devices, stand-ins and effects in the order in which they must come and go.
#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include "parameters/Catalogue.h"
#include "tools/WaveFile.h"
#include "tools/host/CaptureEffect.h"
#include "tools/host/Chain.h"
#include "tools/host/HostOptions.h"
#include "tools/host/ProxyEnumerator.h"
#include "tools/host/RegistrySetting.h"
#include "tools/host/ServiceStandIn.h"

namespace vellumic::tools {

class HostRun {
 public:
  explicit HostRun(const HostOptions& options);
  void go();  // throws std::runtime_error

 private:
  void storeSettings();
  void printNotes() const;
  bool has(const std::string& className) const;
  void standInForDevices();
  void makeEffects();
  void lock(unsigned channels, unsigned sampleRate, std::uint32_t mask);
  void unlock();
  void process(float* samples, unsigned frames);
  void reload();
  void reloadUntil(const std::stop_token& stop) noexcept;  // a thread of its own
  void runFile();
  void runLive();
  void printFigures() const;

  const HostOptions& options_;
  ComPtr<IMMDeviceEnumerator> enumerator_;
  Endpoint endpoint_;
  RawValues values_{}, otherValues_{};
  std::optional<RegistrySetting> setting_;
  std::optional<WaveData> far_;
  StreamClock clock_;
  std::optional<ProxyEnumerator> proxy_;
  std::optional<ServiceStandIn> service_;
  std::vector<std::unique_ptr<CaptureEffect>> effects_;
  std::optional<Chain> chain_;
  unsigned period_ = 480, sampleRate_ = 48000;  // frames per call; Hz
  std::size_t frames_ = 0;                      // processed
  double nextReload_ = 0.0;                     // s of the file
  int reloads_ = 0;
};

}  // namespace vellumic::tools
