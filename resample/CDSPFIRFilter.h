// A linear-phase low-pass as the convolvers use it: a windowed sinc, cut into polyphase branches
// and blocks, each block transformed once.
//
// Thread: get() on any thread but the audio thread (the cache has a lock); immutable afterwards.
#pragma once

#include <compare>
#include <memory>
#include <span>
#include <vector>

#include "resample/CDSPRealFFTKeeper.h"

namespace vellumic::resample {

// What a filter is asked for.
struct FilterRequest {
  double frequency;       // stop-band edge in parts of the Nyquist frequency, above 0, up to 1
  double transitionBand;  // percent of frequency that the slope below it takes
  double attenuation;     // dB
  double gain;            // in the pass band
  int branches;           // polyphase: 2 where the convolver doubles or halves the rate, else 1
  auto operator<=>(const FilterRequest&) const = default;
};

class CDSPFIRFilter {
 public:
  static constexpr int cacheLimit = 96;

  // Equal requests share a filter. The process keeps up to cacheLimit filters; beyond that the
  // longest unused one makes room, and if all are in use the new one is not kept.
  static std::shared_ptr<const CDSPFIRFilter> get(const FilterRequest& request);
  static int cachedCount();

  explicit CDSPFIRFilter(const FilterRequest& request);

  // Middle of the kernel in samples of the higher rate: its delay, always odd.
  int delay() const noexcept { return delay_; }
  int blockLength() const noexcept { return transform_->blockLength(); }
  const CDSPRealFFT& transform() const noexcept { return *transform_; }
  // Blocks of blockLength taps in each branch.
  int blocks() const noexcept { return blocks_; }
  // Branch b holds the taps b, b + branches, ...; scaled for CDSPRealFFT::inverse.
  const double* spectrum(int branch, int block) const noexcept {
    return spectra_.data() + (branch * blocks_ + block) * 2 * blockLength();
  }

 private:
  int delay_;
  CDSPRealFFTKeeper transform_;
  int blocks_ = 0;
  std::vector<double> spectra_;
};

}  // namespace vellumic::resample
