// Which capture endpoint an object serves: its GUID, its jack sub type and its device id.
// Thread: control thread, under the object's lock.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <cstdint>
#include <string>

#include "control/Names.h"
#include "control/StatusBlock.h"

namespace vellumic {

class CHandleEndpoint {
 public:
  // Takes entry deviceIndex of the collection, reads the endpoint's properties, and walks all
  // active capture endpoints for those with the same GUID; the last match gives deviceIdString. An
  // endpoint that fails meanwhile, also one that matches and cannot tell its id, is passed over.
  // No match is a success with an empty id. A property of another type than a text counts as
  // absent. E_INVALIDARG: no collection or store. E_FAIL: empty collection, no such entry, no
  // enumerator. On a failure all members are as constructed.
  HRESULT identify(IMMDeviceCollection* devices, IPropertyStore* endpointProperties,
                   unsigned deviceIndex);

  // Writes endpoint GUID and device id into a status block.
  void describe(StatusBlock& block) const noexcept;

  std::wstring endpointGuidString;  // with braces
  std::wstring jackSubTypeString;   // endpointGuidString if the endpoint has no jack sub type
  std::wstring deviceIdString;      // empty: nothing matched
  std::uint32_t matchingEndpointCount = 0;
  GUID jackSubTypeGuid = settingsTreeGuid;
  GUID endpointGuid{};  // parsed endpointGuidString; null if there is none
};

}  // namespace vellumic
