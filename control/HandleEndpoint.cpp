#include "control/HandleEndpoint.h"

#include <utility>

#include "control/BoundedText.h"
#include "control/DeviceProperties.h"

namespace vellumic {
namespace {

std::wstring readText(IPropertyStore& store, const PROPERTYKEY& key) {
  PropertyValue value;
  if (FAILED(store.GetValue(key, value.put()))) return {};
  const wchar_t* const text = value.text();
  return text != nullptr ? text : L"";
}

bool hasGuid(IMMDevice& device, const GUID& wanted) {
  ComPtr<IPropertyStore> store;
  if (FAILED(device.OpenPropertyStore(STGM_READ, store.put())) || !store) return false;
  const auto guid = parseBracedGuid(readText(*store.get(), endpointGuidKey).c_str());
  return guid && IsEqualGUID(*guid, wanted);
}

std::wstring idOf(IMMDevice& device) {
  struct Text {
    wchar_t* text = nullptr;
    ~Text() { CoTaskMemFree(text); }
  } id;
  if (FAILED(device.GetId(&id.text)) || id.text == nullptr) return {};
  return id.text;
}

HRESULT activeCaptureEndpoints(ComPtr<IMMDeviceCollection>& endpoints) noexcept {
  HRESULT result = S_OK;
  const auto enumerator = createDeviceEnumerator(result);
  if (!enumerator) return E_FAIL;
  result = enumerator->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, endpoints.put());
  return SUCCEEDED(result) && endpoints ? S_OK : E_FAIL;
}

bool hasEntry(IMMDeviceCollection& devices, unsigned position) noexcept {
  UINT count = 0;
  ComPtr<IMMDevice> device;
  return SUCCEEDED(devices.GetCount(&count)) && count != 0 &&
         SUCCEEDED(devices.Item(position, device.put())) && device;
}

}  // namespace

HRESULT CHandleEndpoint::identify(IMMDeviceCollection* devices, IPropertyStore* endpointProperties,
                                  unsigned deviceIndex) {
  *this = CHandleEndpoint();
  if (devices == nullptr || endpointProperties == nullptr) return E_INVALIDARG;
  if (!hasEntry(*devices, deviceIndex)) return E_FAIL;

  CHandleEndpoint found;
  found.endpointGuidString = readText(*endpointProperties, endpointGuidKey);
  found.endpointGuid = parseBracedGuid(found.endpointGuidString.c_str()).value_or(GUID{});
  found.jackSubTypeString = readText(*endpointProperties, jackSubTypeKey);
  if (found.jackSubTypeString.empty()) found.jackSubTypeString = found.endpointGuidString;

  ComPtr<IMMDeviceCollection> endpoints;
  if (const HRESULT result = activeCaptureEndpoints(endpoints); FAILED(result)) return result;
  UINT count = 0;
  if (FAILED(endpoints->GetCount(&count))) return E_FAIL;
  const bool known = !IsEqualGUID(found.endpointGuid, GUID{});
  for (UINT position = 0; known && position < count; ++position) {
    ComPtr<IMMDevice> device;  // one that went meanwhile is skipped
    if (FAILED(endpoints->Item(position, device.put())) || !device) continue;
    if (!hasGuid(*device.get(), found.endpointGuid)) continue;
    auto id = idOf(*device.get());
    if (id.empty()) continue;  // likewise
    found.deviceIdString = std::move(id);
    ++found.matchingEndpointCount;
  }
  *this = std::move(found);
  return S_OK;
}

void CHandleEndpoint::describe(StatusBlock& block) const noexcept {
  block.endpoint = endpointGuid;
  block.deviceIdPresent = matchingEndpointCount != 0 ? 1 : 0;
  copyText(block.deviceId, deviceIdString);
}

}  // namespace vellumic
