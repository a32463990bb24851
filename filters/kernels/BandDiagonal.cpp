#include "filters/kernels/BandDiagonal.h"

#include "filters/kernels/Pairs.h"
#include "platform/KernelBuild.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

constexpr int distance = floatLanes == 8 ? 2 : 1;         // of neighbouring bands, in frames
constexpr int reach = distance * (BandLanes::bands - 1);  // of the last band behind the first
constexpr int registers = (2 * BandLanes::bands + floatLanes - 1) / floatLanes;
// The last band is the second pair of the last register.
static_assert(2 * BandLanes::bands - (registers - 1) * floatLanes == 4);
static_assert(registers * floatLanes <= BandLanes::room);

using Lanes = Floats[registers];
using Marks = Floats::batch_bool_type[registers];

Floats at(const float* values, int r) noexcept {
  return Floats::load_unaligned(values + r * floatLanes);
}

// Copies of the designs: the compiler need not ask whether a stored sample changed them.
struct Design {
  explicit Design(const BandLanes& bands) noexcept {
    for (int r = 0; r < registers; ++r) {
      a1[r] = at(bands.a1, r);
      a2[r] = at(bands.a2, r);
      b0[r] = at(bands.b0, r);
      b1[r] = at(bands.b1, r);
      b2[r] = at(bands.b2, r);
      on[r] = at(bands.on, r) != Floats(0.0F);
    }
  }
  Lanes a1, a2, b0, b1, b2;
  Marks on;
};

struct Memory {
  explicit Memory(const BandLanes& bands) noexcept {
    for (int r = 0; r < registers; ++r) {
      z1[r] = at(bands.z1, r);
      z2[r] = at(bands.z2, r);
      for (auto& waiting : inputs) waiting[r] = Floats(0.0F);
    }
  }
  void store(BandLanes& bands) const noexcept {
    for (int r = 0; r < registers; ++r) {
      z1[r].store_unaligned(bands.z1 + r * floatLanes);
      z2[r].store_unaligned(bands.z2 + r * floatLanes);
    }
  }
  Lanes z1, z2;
  Lanes inputs[distance];  // results that the next bands take: the oldest first
};

// A frame enters and another one leaves; `marked`: where marks are false memories stay and samples
// pass.
template <bool marked>
inline Floats step(const Design& d, Memory& m, const Floats& entering,
                   const Marks& marks) noexcept {
  Lanes x, y;
  for (int r = 0; r < registers; ++r)
    x[r] = movedUp(r == 0 ? entering : m.inputs[0][r - 1], m.inputs[0][r]);
  for (int r = 0; r < registers; ++r) {
    const Floats w = x[r] - m.z1[r] * d.a1[r] - m.z2[r] * d.a2[r];
    y[r] = w * d.b0[r] + m.z1[r] * d.b1[r] + m.z2[r] * d.b2[r];
    if constexpr (marked) {
      m.z2[r] = xsimd::select(marks[r], m.z1[r], m.z2[r]);
      m.z1[r] = xsimd::select(marks[r], w, m.z1[r]);
      y[r] = xsimd::select(marks[r], y[r], x[r]);
    } else {
      m.z2[r] = m.z1[r];
      m.z1[r] = w;
    }
  }
  for (int r = 0; r < registers; ++r) {
    for (int late = 0; late + 1 < distance; ++late) m.inputs[late][r] = m.inputs[late + 1][r];
    m.inputs[distance - 1][r] = y[r];
  }
  return y[registers - 1];
}

// Nothing, all bands, nothing: seen through a window that slides a pair to the left with each band
// that begins, and on with each band that ends.
struct Ends {
  float values[3 * BandLanes::room];
};
constexpr Ends ends = [] {
  Ends made{};
  for (int lane = 0; lane < BandLanes::room; ++lane) made.values[BandLanes::room + lane] = 1.0F;
  return made;
}();
constexpr const float* beginning = ends.values + 2 * BandLanes::room;
constexpr const float* ending = ends.values + BandLanes::room;

// The marks that are on and seen through the window behind n steps.
inline void markEnd(const Marks& on, const float* window, int n, Marks& marks) noexcept {
  for (int r = 0; r < registers; ++r)
    marks[r] = on[r] & (at(window - 2 * (n / distance + 1), r) != Floats(0.0F));
}

template <bool allOn>
void runBands(BandLanes& bands, float* samples, std::size_t stride, std::size_t frames) noexcept {
  const Design design(bands);
  Memory memory(bands);
  Marks marks;
  float *entering = samples, *leaving = samples;
  for (int n = 0; n < reach; ++n, entering += stride) {
    markEnd(design.on, beginning, n, marks);
    step<true>(design, memory, loadPair(entering), marks);
  }
  {
    Memory inRegisters = memory;
    for (std::size_t n = reach; n < frames; ++n, entering += stride, leaving += stride) {
      const Floats y = step<!allOn>(design, inRegisters, loadPair(entering), design.on);
      storeSecondPair(y, leaving);
    }
    memory = inRegisters;
  }
  for (int n = 0; n < reach; ++n, leaving += stride) {
    markEnd(design.on, ending, n, marks);
    storeSecondPair(step<true>(design, memory, Floats(0.0F), marks), leaving);
  }
  memory.store(bands);
}

void run(BandLanes& bands, bool allOn, float* samples, std::size_t stride,
         std::size_t frames) noexcept VELLUMIC_NONBLOCKING {
  if (allOn)
    runBands<true>(bands, samples, stride, frames);
  else
    runBands<false>(bands, samples, stride, frames);
}

}  // namespace

extern const EqualizerKernels equalizerTable;
const EqualizerKernels equalizerTable{24, run};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
