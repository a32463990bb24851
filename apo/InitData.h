// The blob that the audio engine passes to Initialize, checked and taken apart.
#pragma once

#include <windows.h>

#include "apo/AudioEngine.h"

namespace vellumic {

struct InitData {
  CLSID classId;
  GUID mode;             // one of the seven; the default for any other and for the short blob
  unsigned deviceIndex;  // 0 for the short blob
  IPropertyStore* endpointProperties;
  IPropertyStore* effectProperties;
  IMMDeviceCollection* devices;
};

// E_POINTER without data; E_INVALIDARG for a size other than 56 and 88 or a missing member.
// Nothing beyond `size` is read.
HRESULT readInitData(UINT32 size, const BYTE* data, InitData& init) noexcept;

}  // namespace vellumic
