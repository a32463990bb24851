// Ends a fuzzer's run with a word on what did not hold.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace vellumic::fuzz {

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace vellumic::fuzz
