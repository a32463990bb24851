// The machine's sound devices, and the device collection that an effect is initialized with.
// Thread: any with COM.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <string>
#include <vector>

#include "tools/host/ComTools.h"

namespace vellumic::tools {

struct Endpoint {
  ComPtr<IMMDevice> device;
  std::string name;  // UTF-8
  std::string guid;  // with braces
};

ComPtr<IMMDeviceEnumerator> createEnumerator();

std::vector<Endpoint> endpoints(IMMDeviceEnumerator& enumerator, EDataFlow flow);

// By GUID or a part of the name; the system's default capture endpoint for an empty text. Throws
// with the names there are.
Endpoint findCaptureEndpoint(IMMDeviceEnumerator& enumerator, const std::string& wanted);

ComPtr<IPropertyStore> propertiesOf(IMMDevice& device);

// All other devices first, the endpoint last.
ComPtr<IMMDeviceCollection> collectionAround(IMMDeviceEnumerator& enumerator,
                                             const Endpoint& endpoint);

}  // namespace vellumic::tools
