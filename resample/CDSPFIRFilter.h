// A linear-phase low-pass as the convolvers use it: a windowed sinc, cut into polyphase branches
// and blocks, each block transformed once.
//
// Thread: get() on any thread but the audio thread (the cache has a lock); immutable afterwards.
#pragma once

#include <compare>
#include <functional>
#include <memory>
#include <vector>

#include "resample/ChainPlan.h"

namespace vellumic::resample {

// What a filter is asked for.
struct FilterRequest {
  double frequency;       // stop-band edge in parts of the Nyquist frequency, above 0, up to 1
  double transitionBand;  // percent of frequency that the slope below it takes
  double attenuation;     // dB
  double gain;            // in the pass band
  int branches;           // polyphase: the factor by which the convolver shifts the rate
  // Of the chain whose response was measured; a plain low-pass has no chain.
  PowerOfTwoChain measured = PowerOfTwoChain::allowed;
  auto operator<=>(const FilterRequest&) const = default;
};

// Taps at the higher rate, the middle one at index delay. A halving (or a third, ...) of the rate
// keeps the last of every `branches` outputs, so delay + 1 is a multiple of the branches.
struct Kernel {
  std::vector<double> taps;
  int delay;
};
// The Kaiser-windowed sinc that answers the request.
Kernel designLowPass(const FilterRequest& request);

class CDSPFIRFilter {
 public:
  static constexpr int cacheLimit = 96;

  // Equal requests share a filter. The process keeps up to cacheLimit filters; beyond that the
  // longest unused one makes room, and if all are in use the new one is not kept.
  static std::shared_ptr<const CDSPFIRFilter> get(const FilterRequest& request);
  // The same for a kernel that is not a plain low-pass; design runs only if the cache has none.
  static std::shared_ptr<const CDSPFIRFilter> get(const FilterRequest& request,
                                                  const std::function<Kernel()>& design);
  static int cachedCount();

  CDSPFIRFilter(const Kernel& kernel, int branches);

  // Middle of the kernel in samples of the higher rate: its delay.
  int delay() const noexcept { return delay_; }
  int blockBits() const noexcept { return blockBits_; }  // see CDSPRealFFT
  int blockLength() const noexcept { return 2 << blockBits_; }
  // Blocks of blockLength taps in each branch.
  int blocks() const noexcept { return blocks_; }
  // Branch b holds the taps b, b + branches, ...; scaled for CDSPRealFFT::inverse.
  const double* spectrum(int branch, int block) const noexcept {
    return spectra_.data() + (branch * blocks_ + block) * 2 * blockLength();
  }

 private:
  int delay_;
  int blockBits_;
  int blocks_ = 0;
  std::vector<double> spectra_;
};

}  // namespace vellumic::resample
