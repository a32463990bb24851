// Four floats side by side, seen as a lower and an upper pair. SSE registers where there are any,
// plain floats elsewhere; element by element and never fused, so that results equal scalar code.
#pragma once

#include <cstdint>

#if defined(__SSE2__) || defined(_M_X64)
#define VELLUMIC_SSE2 1
#include <emmintrin.h>
#else
#include <bit>
#endif

namespace vellumic {

#ifdef VELLUMIC_SSE2

class FloatLanes {
 public:
  FloatLanes() noexcept : value_(_mm_setzero_ps()) {}
  // (first, second, 0, 0)
  static FloatLanes pair(float first, float second) noexcept {
    return FloatLanes(_mm_unpacklo_ps(_mm_set_ss(first), _mm_set_ss(second)));
  }
  static FloatLanes load(const float* aligned) noexcept { return FloatLanes(_mm_load_ps(aligned)); }
  void store(float* aligned) const noexcept { _mm_store_ps(aligned, value_); }
  float first() const noexcept { return _mm_cvtss_f32(value_); }
  float second() const noexcept {
    return _mm_cvtss_f32(_mm_shuffle_ps(value_, value_, _MM_SHUFFLE(1, 1, 1, 1)));
  }

  friend FloatLanes operator*(FloatLanes a, FloatLanes b) noexcept {
    return FloatLanes(_mm_mul_ps(a.value_, b.value_));
  }
  friend FloatLanes operator+(FloatLanes a, FloatLanes b) noexcept {
    return FloatLanes(_mm_add_ps(a.value_, b.value_));
  }
  friend FloatLanes operator-(FloatLanes a, FloatLanes b) noexcept {
    return FloatLanes(_mm_sub_ps(a.value_, b.value_));
  }

  // The upper pair in both places.
  FloatLanes upper() const noexcept { return FloatLanes(_mm_movehl_ps(value_, value_)); }
  // (lower pair of a, lower pair of b)
  static FloatLanes lowers(FloatLanes a, FloatLanes b) noexcept {
    return FloatLanes(_mm_movelh_ps(a.value_, b.value_));
  }
  // (upper pair of a, upper pair of b)
  static FloatLanes uppers(FloatLanes a, FloatLanes b) noexcept {
    return FloatLanes(_mm_movehl_ps(b.value_, a.value_));
  }
  // (upper pair of a, lower pair of b)
  static FloatLanes across(FloatLanes a, FloatLanes b) noexcept {
    return FloatLanes(_mm_shuffle_ps(a.value_, b.value_, _MM_SHUFFLE(1, 0, 3, 2)));
  }
  // Where the mask's bits are set, `on`, elsewhere `off`.
  static FloatLanes select(FloatLanes mask, FloatLanes on, FloatLanes off) noexcept {
    return FloatLanes(
        _mm_or_ps(_mm_and_ps(mask.value_, on.value_), _mm_andnot_ps(mask.value_, off.value_)));
  }

 private:
  explicit FloatLanes(__m128 value) noexcept : value_(value) {}
  __m128 value_;
};

#else

class FloatLanes {
 public:
  FloatLanes() noexcept = default;
  static FloatLanes pair(float first, float second) noexcept { return {first, second, 0.0F, 0.0F}; }
  static FloatLanes load(const float* from) noexcept {
    return {from[0], from[1], from[2], from[3]};
  }
  void store(float* to) const noexcept {
    for (int lane = 0; lane < 4; ++lane) to[lane] = value_[lane];
  }
  float first() const noexcept { return value_[0]; }
  float second() const noexcept { return value_[1]; }

  friend FloatLanes operator*(FloatLanes a, FloatLanes b) noexcept {
    for (int lane = 0; lane < 4; ++lane) a.value_[lane] *= b.value_[lane];
    return a;
  }
  friend FloatLanes operator+(FloatLanes a, FloatLanes b) noexcept {
    for (int lane = 0; lane < 4; ++lane) a.value_[lane] += b.value_[lane];
    return a;
  }
  friend FloatLanes operator-(FloatLanes a, FloatLanes b) noexcept {
    for (int lane = 0; lane < 4; ++lane) a.value_[lane] -= b.value_[lane];
    return a;
  }

  FloatLanes upper() const noexcept { return uppers(*this, *this); }
  static FloatLanes lowers(FloatLanes a, FloatLanes b) noexcept {
    return {a.value_[0], a.value_[1], b.value_[0], b.value_[1]};
  }
  static FloatLanes uppers(FloatLanes a, FloatLanes b) noexcept {
    return {a.value_[2], a.value_[3], b.value_[2], b.value_[3]};
  }
  static FloatLanes across(FloatLanes a, FloatLanes b) noexcept {
    return {a.value_[2], a.value_[3], b.value_[0], b.value_[1]};
  }
  static FloatLanes select(FloatLanes mask, FloatLanes on, FloatLanes off) noexcept {
    for (int lane = 0; lane < 4; ++lane)
      if (std::bit_cast<std::uint32_t>(mask.value_[lane]) != 0) off.value_[lane] = on.value_[lane];
    return off;
  }

 private:
  FloatLanes(float a, float b, float c, float d) noexcept : value_{a, b, c, d} {}
  float value_[4] = {};
};

#endif

}  // namespace vellumic
