#include "tools/host/Endpoints.h"

#include <algorithm>

namespace vellumic::tools {
namespace {

constexpr PROPERTYKEY nameKey{
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};
constexpr PROPERTYKEY guidKey{
    {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}}, 4};

std::string utf8(const wchar_t* text) {
  if (text == nullptr) return {};
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(std::max(size, 1)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
  result.pop_back();
  return result;
}

std::string textOf(IPropertyStore& store, const PROPERTYKEY& key) {
  PropertyValue value;
  return SUCCEEDED(store.GetValue(key, value.put())) ? utf8(value.text()) : std::string();
}

Endpoint describe(ComPtr<IMMDevice> device) {
  const auto store = propertiesOf(*device.get());
  return {.device = device,
          .name = textOf(*store.get(), nameKey),
          .guid = textOf(*store.get(), guidKey)};
}

std::vector<ComPtr<IMMDevice>> items(IMMDeviceCollection& collection) {
  UINT count = 0;
  check(collection.GetCount(&count), "cannot count the sound devices");
  std::vector<ComPtr<IMMDevice>> devices(count);
  for (UINT i = 0; i < count; ++i)
    check(collection.Item(i, devices[i].put()), "cannot open a sound device");
  return devices;
}

class Collection final : public Counted<IMMDeviceCollection> {
 public:
  explicit Collection(std::vector<ComPtr<IMMDevice>> devices) : devices_(std::move(devices)) {}
  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<UINT>(devices_.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Item(UINT position, IMMDevice** device) override {
    if (device == nullptr) return E_POINTER;
    *device = nullptr;
    if (position >= devices_.size()) return E_INVALIDARG;
    *device = ComPtr(devices_[position]).detach();
    return S_OK;
  }

 private:
  std::vector<ComPtr<IMMDevice>> devices_;
};

bool sameText(const std::string& a, const std::string& b) {
  return _stricmp(a.c_str(), b.c_str()) == 0;
}

}  // namespace

ComPtr<IMMDeviceEnumerator> createEnumerator() {
  ComPtr<IMMDeviceEnumerator> enumerator;
  check(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                         __uuidof(IMMDeviceEnumerator), enumerator.putVoid()),
        "no sound system");
  return enumerator;
}

std::vector<Endpoint> endpoints(IMMDeviceEnumerator& enumerator, EDataFlow flow) {
  ComPtr<IMMDeviceCollection> all;
  check(enumerator.EnumAudioEndpoints(flow, DEVICE_STATE_ACTIVE, all.put()), "no sound devices");
  std::vector<Endpoint> result;
  for (auto& device : items(*all.get())) result.push_back(describe(std::move(device)));
  return result;
}

Endpoint findCaptureEndpoint(IMMDeviceEnumerator& enumerator, const std::string& wanted) {
  if (wanted.empty()) {
    ComPtr<IMMDevice> device;
    check(enumerator.GetDefaultAudioEndpoint(eCapture, eConsole, device.put()),
          "no default microphone; connect one or name an endpoint with --endpoint");
    return describe(std::move(device));
  }
  std::string known;
  for (Endpoint& endpoint : endpoints(enumerator, eCapture)) {
    if (sameText(endpoint.guid, wanted) || endpoint.name.find(wanted) != std::string::npos)
      return std::move(endpoint);
    known += (known.empty() ? "" : ", ") + endpoint.name;
  }
  throw std::runtime_error("endpoint " + wanted +
                           ": not found; there are: " + (known.empty() ? "none" : known));
}

ComPtr<IPropertyStore> propertiesOf(IMMDevice& device) {
  ComPtr<IPropertyStore> store;
  check(device.OpenPropertyStore(STGM_READ, store.put()), "cannot read a device's properties");
  return store;
}

ComPtr<IMMDeviceCollection> collectionAround(IMMDeviceEnumerator& enumerator,
                                             const Endpoint& endpoint) {
  std::vector<ComPtr<IMMDevice>> devices;
  for (Endpoint& other : endpoints(enumerator, eAll))
    if (!sameText(other.guid, endpoint.guid)) devices.push_back(std::move(other.device));
  devices.push_back(endpoint.device);
  return ComPtr<IMMDeviceCollection>::attach(new Collection(std::move(devices)));
}

}  // namespace vellumic::tools
