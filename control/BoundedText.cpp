#include "control/BoundedText.h"

#include <objbase.h>

namespace vellumic {

GuidText::GuidText(const GUID& guid) noexcept {
  if (StringFromGUID2(guid, text_.data(), static_cast<int>(text_.size())) == 0) text_[0] = L'\0';
}

}  // namespace vellumic
