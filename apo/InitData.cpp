#include "apo/InitData.h"

#include <cstring>

#include "apo/ProcessingModes.h"

namespace vellumic {

HRESULT readInitData(UINT32 size, const BYTE* data, InitData& init) noexcept {
  if (data == nullptr) return E_POINTER;
  if (size != sizeof(APOInitSystemEffects) && size != sizeof(APOInitSystemEffects2))
    return E_INVALIDARG;
  APOInitSystemEffects2 blob{};  // the short form is its beginning
  std::memcpy(&blob, data, size);
  if (blob.pDeviceCollection == nullptr || blob.pAPOEndpointProperties == nullptr ||
      blob.pAPOSystemEffectsProperties == nullptr)
    return E_INVALIDARG;
  init = {.classId = blob.APOInit.clsid,
          .mode = knownModeOrDefault(blob.AudioProcessingMode),
          .deviceIndex = blob.nSoftwareIoDeviceInCollection,
          .endpointProperties = blob.pAPOEndpointProperties,
          .effectProperties = blob.pAPOSystemEffectsProperties,
          .devices = blob.pDeviceCollection};
  return S_OK;
}

}  // namespace vellumic
