// Moves of channel pairs, two neighbouring lanes, in and out of registers. For kernel sources
// alone.
#pragma once

#include "platform/KernelBuild.h"

namespace vellumic::VELLUMIC_KERNEL_SET {

// The pair in every place of a register.
inline Floats loadPair(const float* samples) noexcept {
#if defined(VELLUMIC_KERNEL_AVX2)
  return Floats(_mm256_castsi256_ps(
      _mm256_broadcastq_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(samples)))));
#else
  float values[floatLanes];
  for (int lane = 0; lane < floatLanes; ++lane) values[lane] = samples[lane % 2];
  return Floats::load_unaligned(values);
#endif
}

// The last pair of `before`, then all of `values` but its own last pair.
inline Floats movedUp(const Floats& before, const Floats& values) noexcept {
#if defined(VELLUMIC_KERNEL_AVX2)
  const __m256d a = _mm256_castps_pd(before), b = _mm256_castps_pd(values);
  const __m256d middle = _mm256_permute2f128_pd(a, b, 0x21);
  return Floats(_mm256_castpd_ps(_mm256_shuffle_pd(middle, b, 0b0101)));
#elif defined(__SSE4_2__)
  return Floats(_mm_shuffle_ps(before, values, _MM_SHUFFLE(1, 0, 3, 2)));
#else
  float moved[2 * floatLanes];
  before.store_unaligned(moved);
  values.store_unaligned(moved + floatLanes);
  return Floats::load_unaligned(moved + floatLanes - 2);
#endif
}

// Stores the second pair.
inline void storeSecondPair(const Floats& values, float* samples) noexcept {
#if defined(VELLUMIC_KERNEL_AVX2)
  _mm_storeh_pi(reinterpret_cast<__m64*>(samples), _mm256_castps256_ps128(values));
#elif defined(__SSE4_2__)
  _mm_storeh_pi(reinterpret_cast<__m64*>(samples), values);
#else
  float stored[floatLanes];
  values.store_unaligned(stored);
  samples[0] = stored[2];
  samples[1] = stored[3];
#endif
}

}  // namespace vellumic::VELLUMIC_KERNEL_SET
