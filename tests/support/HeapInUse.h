// Bytes of the heap in use, as the allocator of the build counts them: the C library's or a
// sanitizer's. 0 on Windows.
#pragma once

#include <cstddef>
#ifdef __linux__
#include <malloc.h>

extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace vellumic {

inline std::size_t heapInUse() {
#ifdef __linux__
  if (__sanitizer_get_current_allocated_bytes != nullptr)
    return __sanitizer_get_current_allocated_bytes();
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
#else
  return 0;
#endif
}

}  // namespace vellumic
