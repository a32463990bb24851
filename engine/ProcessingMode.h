// The audio processing mode of a stream and the category that the image keeps of it.
#pragma once

#include "parameters/Image.h"

namespace vellumic {

enum class ProcessingMode { standard, raw, speech, communications, media, movie, notification };

constexpr Category categoryOf(ProcessingMode mode) noexcept {
  switch (mode) {
    case ProcessingMode::raw:
      return Category::raw;
    case ProcessingMode::media:
      return Category::media;
    case ProcessingMode::movie:
      return Category::movie;
    case ProcessingMode::communications:
      return Category::communications;
    case ProcessingMode::speech:
      return Category::speech;
    default:
      return Category::other;
  }
}

}  // namespace vellumic
