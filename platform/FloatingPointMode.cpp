#include "platform/FloatingPointMode.h"

#if defined(__SSE__) || defined(_M_X64)
#include <xmmintrin.h>
#endif

namespace vellumic {

void cutDenormals() noexcept VELLUMIC_NONBLOCKING {
#if defined(__SSE__) || defined(_M_X64)
  constexpr unsigned flushToZero = 1U << 15;
  constexpr unsigned denormalsAreZero = 1U << 6;
  _mm_setcsr(_mm_getcsr() | flushToZero);
  _mm_setcsr(_mm_getcsr() | denormalsAreZero);
#endif
}

}  // namespace vellumic
