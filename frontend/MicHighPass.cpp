#include "frontend/MicHighPass.h"

#include <algorithm>
#include <cstddef>

#include "frontend/BoundedSample.h"

namespace vellumic {
namespace {

// Several channels at a time: their recursions do not wait for one another. As
// BiquadSection::process, with the memories in registers.
template <std::size_t channels>
void runTogether(BiquadSection* sections, std::vector<float>* arrays, int first,
                 int count) noexcept {
  const BiquadSection design = sections[0];
  float* samples[channels];
  float z1[channels], z2[channels], w[channels];
  for (std::size_t c = 0; c < channels; ++c) {
    samples[c] = arrays[c].data() + first;
    z1[c] = sections[c].z1;
    z2[c] = sections[c].z2;
    w[c] = sections[c].w;
  }
  for (int n = 0; n < count; ++n)
    for (std::size_t c = 0; c < channels; ++c) {
      float& sample = samples[c][n];
      w[c] = sample - z1[c] * design.a1 - z2[c] * design.a2;
      const float filtered = w[c] * design.b0 + z1[c] * design.b1 + z2[c] * design.b2;
      const bool sound = isSound(filtered);
      sample = sound ? filtered : 0.0F;
      z2[c] = sound ? z1[c] : 0.0F;
      z1[c] = sound ? w[c] : 0.0F;
    }
  for (std::size_t c = 0; c < channels; ++c) {
    sections[c].z1 = z1[c];
    sections[c].z2 = z2[c];
    sections[c].w = w[c];
  }
}

}  // namespace

void runHighPass(std::span<BiquadSection> sections, ChannelArrays& samples, int first,
                 int count) noexcept VELLUMIC_NONBLOCKING {
  std::size_t c = 0;
  for (; c + 4 <= sections.size(); c += 4) runTogether<4>(&sections[c], &samples[c], first, count);
  for (; c + 2 <= sections.size(); c += 2) runTogether<2>(&sections[c], &samples[c], first, count);
  for (; c < sections.size(); ++c) runTogether<1>(&sections[c], &samples[c], first, count);
}

}  // namespace vellumic
