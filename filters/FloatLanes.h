// Four floats side by side: two pairs, a lower and an upper one. SSE registers where there are any,
// plain floats elsewhere; element by element, never fused, so that results equal scalar code.
#pragma once

#if defined(__SSE2__) || defined(_M_X64)
#define VELLUMIC_SSE2 1
#include <emmintrin.h>
#endif

namespace vellumic {

#ifdef VELLUMIC_SSE2

class FloatLanes {
 public:
  // (first, second, 0, 0)
  static FloatLanes pair(float first, float second) noexcept {
    return FloatLanes(_mm_unpacklo_ps(_mm_set_ss(first), _mm_set_ss(second)));
  }
  static FloatLanes load(const float* aligned) noexcept { return FloatLanes(_mm_load_ps(aligned)); }
  void store(float* aligned) const noexcept { _mm_store_ps(aligned, value_); }
  void storePair(float* lower) const noexcept {
    _mm_storel_pi(reinterpret_cast<__m64*>(lower), value_);
  }

  FloatLanes operator*(FloatLanes right) const noexcept {
    return FloatLanes(_mm_mul_ps(value_, right.value_));
  }
  FloatLanes operator+(FloatLanes right) const noexcept {
    return FloatLanes(_mm_add_ps(value_, right.value_));
  }
  FloatLanes operator-(FloatLanes right) const noexcept {
    return FloatLanes(_mm_sub_ps(value_, right.value_));
  }
  // The upper pair in both places.
  FloatLanes upper() const noexcept { return FloatLanes(_mm_movehl_ps(value_, value_)); }
  // This lower pair below the other's lower pair.
  FloatLanes over(FloatLanes other) const noexcept {
    return FloatLanes(_mm_movelh_ps(value_, other.value_));
  }

 private:
  explicit FloatLanes(__m128 value) noexcept : value_(value) {}
  __m128 value_;
};

#else

class FloatLanes {
 public:
  static FloatLanes pair(float first, float second) noexcept {
    return FloatLanes(first, second, 0.0F, 0.0F);
  }
  static FloatLanes load(const float* from) noexcept {
    return FloatLanes(from[0], from[1], from[2], from[3]);
  }
  void store(float* to) const noexcept {
    for (int lane = 0; lane < 4; ++lane) to[lane] = value_[lane];
  }
  void storePair(float* lower) const noexcept {
    lower[0] = value_[0];
    lower[1] = value_[1];
  }

  FloatLanes operator*(FloatLanes r) const noexcept {
    return FloatLanes(value_[0] * r.value_[0], value_[1] * r.value_[1], value_[2] * r.value_[2],
                      value_[3] * r.value_[3]);
  }
  FloatLanes operator+(FloatLanes r) const noexcept {
    return FloatLanes(value_[0] + r.value_[0], value_[1] + r.value_[1], value_[2] + r.value_[2],
                      value_[3] + r.value_[3]);
  }
  FloatLanes operator-(FloatLanes r) const noexcept {
    return FloatLanes(value_[0] - r.value_[0], value_[1] - r.value_[1], value_[2] - r.value_[2],
                      value_[3] - r.value_[3]);
  }
  FloatLanes upper() const noexcept {
    return FloatLanes(value_[2], value_[3], value_[2], value_[3]);
  }
  FloatLanes over(FloatLanes other) const noexcept {
    return FloatLanes(value_[0], value_[1], other.value_[0], other.value_[1]);
  }

 private:
  FloatLanes(float a, float b, float c, float d) noexcept : value_{a, b, c, d} {}
  float value_[4];
};

#endif

}  // namespace vellumic
