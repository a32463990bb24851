#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

class Nowhere final : public Counted<IMMDevice> {
 public:
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
    return PSCreateMemoryPropertyStore(__uuidof(IPropertyStore), reinterpret_cast<void**>(store));
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetState(DWORD*) override { return E_NOTIMPL; }
};

}  // namespace

TestSite::TestSite(const std::string& wanted) : enumerator_(createEnumerator()) {
  try {
    endpoint_ = findCaptureEndpoint(*enumerator_.get(), wanted);
    hasMicrophone_ = true;
  } catch (const std::runtime_error&) {  // the devices stage tells why
    endpoint_ = {.device = ComPtr<IMMDevice>::attach(new Nowhere), .name = {}, .guid = {}};
  }
  devices_ = collectionAround(*enumerator_.get(), endpoint_);
  endpointProperties_ = propertiesOf(*endpoint_.device.get());
  effectProperties_ = propertiesOf(*endpoint_.device.get());
}

EffectSite TestSite::at(const GUID& mode) const {
  return {.devices = devices_.get(),
          .endpointProperties = endpointProperties_.get(),
          .effectProperties = effectProperties_.get(),
          .deviceIndex = 0,
          .processingMode = mode};
}

std::unique_ptr<CaptureEffect> TestSite::effect(const std::string& name, const GUID& mode) const {
  auto effect = std::make_unique<CaptureEffect>(name);
  effect->initialize(at(mode));
  return effect;
}

}  // namespace vellumic::tools
