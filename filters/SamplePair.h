// One sample of each of two channels, in the first two lanes of a register. Never fused, so that
// results equal scalar code.
#pragma once

#include <xsimd/xsimd.hpp>

namespace vellumic {

using SamplePair = xsimd::batch<float>;

inline SamplePair loadPair(const float* samples) noexcept {
#if defined(__SSE4_2__) || defined(_M_X64)
  return SamplePair(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(samples))));
#else
  float lanes[SamplePair::size] = {samples[0], samples[1]};
  return SamplePair::load_unaligned(lanes);
#endif
}

inline void storePair(const SamplePair& pair, float* samples) noexcept {
#if defined(__SSE4_2__) || defined(_M_X64)
  _mm_storel_pi(reinterpret_cast<__m64*>(samples), pair);
#else
  float lanes[SamplePair::size];
  pair.store_unaligned(lanes);
  samples[0] = lanes[0];
  samples[1] = lanes[1];
#endif
}

}  // namespace vellumic
