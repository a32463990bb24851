// Views of Eigen's arrays for the frame path: their types leave no way to the heap, which the
// compiler sees (platform/Realtime.h).
#pragma once

#include <Eigen/Core>
#include <type_traits>

#include "platform/Realtime.h"

namespace vellumic {

// All of an array, to assign to: `whole(a) = b` for a b of its size. An array by itself would take
// any size, and memory for it.
template <class Array>
auto whole(Eigen::PlainObjectBase<Array>& array) noexcept VELLUMIC_NONBLOCKING {
  return Array::MapAligned(array.data(), array.rows(), array.cols());
}

// Read-only argument: an array or whole columns, or a stretch of one column. Where Eigen's
// `Ref<const Array>` would make a copy on the heap, this does not compile.
template <class Array>
class ConstView
    : public Eigen::Map<const Array, Eigen::Unaligned,
                        std::conditional_t<Array::IsVectorAtCompileTime, Eigen::InnerStride<1>,
                                           Eigen::OuterStride<>>> {
  using Stride =
      std::conditional_t<Array::IsVectorAtCompileTime, Eigen::InnerStride<1>, Eigen::OuterStride<>>;
  using Base = Eigen::Map<const Array, Eigen::Unaligned, Stride>;

 public:
  template <class Source>
  ConstView(const Eigen::DenseBase<Source>& source) noexcept VELLUMIC_NONBLOCKING
      : Base(source.derived().data(), source.rows(), source.cols(), strideOf(source.derived())) {
    static_assert(Source::InnerStrideAtCompileTime == 1 && !Source::IsRowMajor);
  }

 private:
  template <class Source>
  static Stride strideOf(const Source& source) noexcept {
    if constexpr (Array::IsVectorAtCompileTime)
      return Stride();
    else
      return Stride(source.outerStride());
  }
};

}  // namespace vellumic
