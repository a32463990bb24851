// Readies engine and image for a stream. Control thread, at lock only, under parameterLock, before
// buildImage(). Sizes equaliser and pipeline, so it may throw std::bad_alloc.
#pragma once

#include "parameters/Image.h"

namespace vellumic {

class FrameEngine;

// Takes mode and channel count of the stream from entries 7 and 19, and the category from entry 5,
// that is from the build before.
// Only the speech mode and those without a category of their own ready the pipeline.
//
// True if the stream takes its references from the loopback. Start that once the stream's own
// build is adopted: it opens for the internal rate in force.
bool prepareImage(FrameEngine& engine, FadeView fadeState, ImageView image, MaskView mask);

}  // namespace vellumic
