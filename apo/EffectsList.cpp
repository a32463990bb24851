#include "apo/EffectsList.h"

#include <objbase.h>

#include <algorithm>

namespace vellumic {

HRESULT listEffects(std::span<const ReportedEffect> effects, ImageView image, MaskView mask,
                    GUID** ids, UINT* count) noexcept {
  *ids = nullptr;
  *count = 0;
  if (image[Entry::effectEnable] == 0.0F) return S_OK;
  const auto reported = [mask](const ReportedEffect& effect) { return mask[effect.entry] != 0; };
  const auto found =
      static_cast<std::size_t>(std::count_if(effects.begin(), effects.end(), reported));
  if (found == 0) return S_OK;
  *ids = static_cast<GUID*>(CoTaskMemAlloc(found * sizeof(GUID)));
  if (*ids == nullptr) return E_OUTOFMEMORY;
  for (const ReportedEffect& effect : effects)
    if (reported(effect)) (*ids)[(*count)++] = effect.id;
  return S_OK;
}

}  // namespace vellumic
