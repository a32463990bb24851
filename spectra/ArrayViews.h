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

template <class Array>
using ViewStride =
    std::conditional_t<Array::IsVectorAtCompileTime, Eigen::InnerStride<1>, Eigen::OuterStride<>>;

// A read-only argument: an array, some of its columns or rows, or a stretch of one column. What
// Eigen's `Ref<const Array>` would copy to the heap to make it fit does not compile here.
template <class Array>
class ConstView : public Eigen::Map<const Array, Eigen::Unaligned, ViewStride<Array>> {
 public:
  template <class Source>
  ConstView(const Eigen::DenseBase<Source>& source) noexcept VELLUMIC_NONBLOCKING
      : ConstView::Map(source.derived().data(), source.rows(), source.cols(),
                       ViewStride<Array>(isColumn ? 1 : source.derived().outerStride())) {
    static_assert(Source::InnerStrideAtCompileTime == 1 && !Source::IsRowMajor);
    static_assert(Source::IsVectorAtCompileTime || !isColumn);
  }

 private:
  static constexpr bool isColumn = Array::IsVectorAtCompileTime;
};

}  // namespace vellumic
