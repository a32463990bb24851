// Endpoint volumes in the image, entries 22 to 24: single floats that a service thread writes
// while audio runs. Every access goes through relaxed atomic references.
#pragma once

#include "parameters/Image.h"
#include "platform/Realtime.h"

namespace vellumic {

struct Volumes {  // linear; 0 is muted
  float master = 1.0F, first = 0.0F, second = 0.0F;
};

Volumes loadVolumes(const float* image) noexcept VELLUMIC_NONBLOCKING;
void storeVolumes(float* image, Volumes volumes) noexcept VELLUMIC_NONBLOCKING;
void storeMasterVolume(float* image, float master) noexcept;

}  // namespace vellumic
