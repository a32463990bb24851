// Where the self-test's effects sit: a microphone, or, on a machine without one, nowhere.
// Thread: one with COM.
#pragma once

#include <memory>
#include <string>

#include "tools/host/CaptureEffect.h"
#include "tools/host/Endpoints.h"

namespace vellumic::tools {

inline constexpr GUID defaultMode{
    0xC18E2F7E, 0x933D, 0x4965, {0xB7, 0xD1, 0x1E, 0xEF, 0x22, 0x8D, 0x2A, 0xF3}};
inline constexpr GUID rawMode{
    0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};
inline constexpr GUID speechMode{
    0xFC1CFC9B, 0xB9D6, 0x4CFA, {0xB5, 0xE0, 0x4B, 0xB2, 0x16, 0x68, 0x78, 0xB2}};
inline constexpr GUID communicationsMode{
    0x98951333, 0xB9CD, 0x48B1, {0xA0, 0xA3, 0xFF, 0x40, 0x68, 0x2D, 0x73, 0xF7}};
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
