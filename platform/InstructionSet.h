// Which vector instructions the hot kernels use.
//
// A kernel is a source file that cmake compiles once per set (vellumic_kernels). Each build of it
// lies in a namespace of its own and is reached through a table of function pointers, one table per
// set, so that no instruction of a higher set stands outside its own object file.
//
// The set is chosen by the processor when the library is loaded; on the frame path `instructionSet`
// is one load. Tests compare the sets through ScopedInstructionSet.
#pragma once

#include <array>
#include <cstddef>

#include "platform/Realtime.h"

namespace vellumic {

enum class InstructionSet {
  Base,  // what every build assumes: SSE4.2 on x86-64, portable C++ elsewhere
  Avx2,  // AVX2 and FMA
};
inline constexpr std::size_t instructionSetCount = 2;

const char* nameOf(InstructionSet set) noexcept;

// The best set that processor and operating system offer.
InstructionSet machineInstructionSet() noexcept;

// The set in force.
InstructionSet instructionSet() noexcept VELLUMIC_NONBLOCKING;

// One entry per set, the one in force by `chosen`.
template <class Kernels>
struct KernelTable {
  std::array<const Kernels*, instructionSetCount> bySet;
  const Kernels& chosen() const noexcept VELLUMIC_NONBLOCKING {
    return *bySet[static_cast<std::size_t>(instructionSet())];
  }
};

// For tests and benchmarks: another set while it lives, never more than the machine's. Not while
// another thread runs kernels.
class ScopedInstructionSet {
 public:
  explicit ScopedInstructionSet(InstructionSet set) noexcept;
  ~ScopedInstructionSet();
  ScopedInstructionSet(const ScopedInstructionSet&) = delete;
  ScopedInstructionSet& operator=(const ScopedInstructionSet&) = delete;

 private:
  InstructionSet previous_;
};

}  // namespace vellumic
