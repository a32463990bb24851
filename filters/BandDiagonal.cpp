#include "filters/BandDiagonal.h"

#include <utility>

namespace vellumic {
namespace {

constexpr std::size_t stageCount = equalizerBands / 2;

// Two neighbouring bands: the earlier one in the lower pair, the later one in the upper pair.
struct Stage {
  FloatLanes z1, z2, a1, a2, b0, b1, b2, mask;

  void gather(const BandLanes& earlier, const BandLanes& later) noexcept {
    const auto load = [&](auto lanes) {
      return std::pair(FloatLanes::load(earlier.*lanes), FloatLanes::load(later.*lanes));
    };
    const auto split = [](auto both, FloatLanes& lower, FloatLanes& upper) {
      lower = FloatLanes::lowers(both.first, both.second);
      upper = FloatLanes::uppers(both.first, both.second);
    };
    FloatLanes unused;
    split(load(&BandLanes::memory), z1, z2);
    split(load(&BandLanes::denominator), a1, a2);
    split(load(&BandLanes::numerator), b1, b2);
    split(load(&BandLanes::direct), b0, unused);
    split(load(&BandLanes::mask), mask, unused);
  }

  void scatterMemory(BandLanes& earlier, BandLanes& later) const noexcept {
    FloatLanes::lowers(z1, z2).store(earlier.memory);
    FloatLanes::uppers(z1, z2).store(later.memory);
  }

  template <bool allOn>
  FloatLanes process(FloatLanes x) noexcept {
    const FloatLanes w = x - z1 * a1 - z2 * a2;
    const FloatLanes y = w * b0 + z1 * b1 + z2 * b2;
    if constexpr (allOn) {
      z2 = z1;
      z1 = w;
      return y;
    } else {
      z2 = FloatLanes::select(mask, z1, z2);
      z1 = FloatLanes::select(mask, w, z1);
      return FloatLanes::select(mask, y, x);
    }
  }
};

class Diagonal {
 public:
  Diagonal(BandLanesArray& bands, float* samples, std::size_t stride) noexcept
      : bands_(bands), samples_(samples), stride_(stride) {}

  // The first frames, each as far as the diagonal reaches; frame n stops after band last - n.
  void fill() noexcept {
    for (std::size_t frame = 0; frame < last; ++frame)
      place(last - 1 - frame, cascade(load(frame), 0, last - frame));
    for (std::size_t stage = 0; stage < stageCount; ++stage)
      stages_[stage].gather(bands_[2 * stage], bands_[2 * stage + 1]);
  }

  // Frame n enters, frame n - last leaves.
  template <bool allOn>
  void run(std::size_t frames) noexcept {
    // Local copies live in registers.
    auto stages = stages_;
    auto outputs = outputs_;
    float* entering = samples_ + last * stride_;
    float* leaving = samples_;
    for (std::size_t frame = last; frame < frames; ++frame) {
      const FloatLanes x = FloatLanes::pair(entering[0], entering[1]);
      step<allOn>(stages, outputs, x, std::make_index_sequence<stageCount - 1>{});
      const FloatLanes y = outputs[stageCount - 1].upper();
      leaving[0] = y.first();
      leaving[1] = y.second();
      entering += stride_;
      leaving += stride_;
    }
    stages_ = stages;
    outputs_ = outputs;
  }

  // What is left of the last frames.
  void drain(std::size_t frames) noexcept {
    for (std::size_t stage = 0; stage < stageCount; ++stage)
      stages_[stage].scatterMemory(bands_[2 * stage], bands_[2 * stage + 1]);
    for (std::size_t done = last; done-- > 0;)
      store(frames - 1 - done, cascade(taken(done), done + 1, bands_.size()));
  }

 private:
  static constexpr std::size_t last = equalizerBands - 1;

  using Stages = std::array<Stage, stageCount>;
  using Outputs = std::array<FloatLanes, stageCount>;  // of each stage's two bands

  template <bool allOn, std::size_t... index>
  static void step(Stages& stages, Outputs& outputs, FloatLanes x,
                   std::index_sequence<index...>) noexcept {
    // Later stages first: each takes what the one before it gave in the step before.
    ((outputs[stageCount - 1 - index] = stages[stageCount - 1 - index].template process<allOn>(
          FloatLanes::across(outputs[stageCount - 2 - index], outputs[stageCount - 1 - index]))),
     ...);
    outputs[0] = stages[0].template process<allOn>(FloatLanes::lowers(x, outputs[0]));
  }

  FloatLanes cascade(FloatLanes x, std::size_t from, std::size_t to) noexcept {
    for (std::size_t band = from; band < to; ++band) x = bands_[band].processMasked(x);
    return x;
  }

  FloatLanes load(std::size_t frame) const noexcept {
    return FloatLanes::pair(samples_[frame * stride_], samples_[frame * stride_ + 1]);
  }
  void store(std::size_t frame, FloatLanes y) const noexcept {
    samples_[frame * stride_] = y.first();
    samples_[frame * stride_ + 1] = y.second();
  }
  void place(std::size_t band, FloatLanes y) noexcept {
    FloatLanes& both = outputs_[band / 2];
    both = band % 2 == 0 ? FloatLanes::lowers(y, both.upper()) : FloatLanes::lowers(both, y);
  }
  FloatLanes taken(std::size_t band) const noexcept {
    return band % 2 == 0 ? outputs_[band / 2] : outputs_[band / 2].upper();
  }

  BandLanesArray& bands_;
  float* samples_;
  std::size_t stride_;
  Stages stages_{};
  Outputs outputs_{};
};

}  // namespace

VELLUMIC_RT_CODE void runDiagonal(BandLanesArray& bands, bool allOn, float* samples,
                                  std::size_t stride,
                                  std::size_t frames) noexcept VELLUMIC_NONBLOCKING {
  Diagonal diagonal(bands, samples, stride);
  diagonal.fill();
  if (allOn)
    diagonal.run<true>(frames);
  else
    diagonal.run<false>(frames);
  diagonal.drain(frames);
}

}  // namespace vellumic
