// The numbers that the transform kernels read: twiddles of one size for one width of registers.
//
// Thread: built off the audio path (sines, heap, the pool's lock); immutable afterwards.
#pragma once

#include <memory>
#include <vector>
#include <xsimd/xsimd.hpp>

#include "spectra/kernels/TransformKernels.h"

namespace vellumic {

// On whole cache lines.
template <class Real>
using AlignedVector = std::vector<Real, xsimd::aligned_allocator<Real, 64>>;

template <class Real>
class ComplexTables {
 public:
  // Points of which a fast transform exists: a multiple of lanes, at least two of them, with no
  // prime factor above 5.
  static bool possible(int points, int lanes) noexcept;

  ComplexTables(int points, int lanes);
  const ComplexPlan<Real>& plan() const noexcept { return plan_; }
  ComplexTables(const ComplexTables&) = delete;
  ComplexTables& operator=(const ComplexTables&) = delete;

 private:
  ComplexPlan<Real> plan_{};
  AlignedVector<Real> laneTwiddles_, twiddles_;
};

class RealTables {
 public:
  static bool possible(int size, int lanes) noexcept;

  RealTables(int size, int lanes);
  const RealPlan& plan() const noexcept { return plan_; }

  // The tables that all transforms of this size and width share while there are any.
  static std::shared_ptr<const RealTables> shared(int size, int lanes);

 private:
  ComplexTables<float> half_;
  AlignedVector<float> twiddles_;
  RealPlan plan_;
};

// A transform's scratch memory: one thread at a time.
template <class Real>
class ScratchMemory {
 public:
  explicit ScratchMemory(int points)
      : memory_(static_cast<std::size_t>(2 * scratchLength(points))) {}
  TransformScratch<Real> view() noexcept {
    return {memory_.data(), memory_.data() + memory_.size() / 2};
  }

 private:
  AlignedVector<Real> memory_;
};

}  // namespace vellumic
