// Where the self-test's effects sit: a microphone, or, on a machine without one, nowhere.
// Thread: one with COM.
#pragma once

#include <memory>
#include <string>

#include "apo/ProcessingModes.h"
#include "tools/host/CaptureEffect.h"
#include "tools/host/Endpoints.h"

namespace vellumic::tools {

inline constexpr const char* classNames[] = {"efx", "mfx", "kdmfx"};

class TestSite {
 public:
  // wanted: as for findCaptureEndpoint. Throws ComError without an enumerator.
  explicit TestSite(const std::string& wanted);

  [[nodiscard]] bool hasMicrophone() const { return hasMicrophone_; }
  [[nodiscard]] const Endpoint& endpoint() const { return endpoint_; }
  [[nodiscard]] IMMDeviceEnumerator& enumerator() const { return *enumerator_.get(); }
  [[nodiscard]] ComPtr<IMMDeviceEnumerator> sharedEnumerator() const { return enumerator_; }
  [[nodiscard]] EffectSite at(const GUID& mode) const;

  // A new effect, initialized here.
  [[nodiscard]] std::unique_ptr<CaptureEffect> effect(const std::string& name,
                                                      const GUID& mode) const;

 private:
  ComPtr<IMMDeviceEnumerator> enumerator_;
  Endpoint endpoint_;
  bool hasMicrophone_ = false;
  ComPtr<IMMDeviceCollection> devices_;
  ComPtr<IPropertyStore> endpointProperties_, effectProperties_;
};

}  // namespace vellumic::tools
