// Low-pass filter that may double or halve the rate: overlap-save convolution in equal blocks.
//
// A block of input is transformed when it is full; products with the blocks of the filter's
// spectrum are summed and transformed back (uniformly partitioned convolution: T. G. Stockham,
// "High-speed convolution and correlation", 1966, with a delay line in the frequency domain). The
// zeros of a doubling and the dropped half of a halving are never computed: the filter's two
// polyphase branches give the even and odd outputs, or take the even and odd inputs.
//
// The results of a block are doled out one by one as the next block comes in, so no call returns a
// burst; the start-up delay is dropped, so the first output belongs to the first input.
#pragma once

#include <memory>
#include <vector>

#include "resample/CDSPFIRFilter.h"
#include "resample/CDSPProcessor.h"

namespace vellumic::resample {

class CDSPBlockConvolver final : public CDSPProcessor {
 public:
  // up, down: 1 and 1, 2 and 1, or 1 and 2; the filter has max(up, down) branches.
  CDSPBlockConvolver(std::shared_ptr<const CDSPFIRFilter> filter, int up, int down, int maxInput);

  int inputBeforeOutput(int nextInput) const noexcept override;
  int maxOutputLength(int maxInput) const noexcept override;
  void clear() noexcept override;
  int process(const double* input, int count,
              const double*& output) noexcept VELLUMIC_NONBLOCKING override;

 private:
  void take(const double* input, int count) noexcept;
  const double* dole(int due, int& count) noexcept;
  void convolve() noexcept;
  int delayOutputs() const noexcept;

  std::shared_ptr<const CDSPFIRFilter> filter_;
  int upFactor_;
  int downFactor_;
  int blockLength_;  // in frames: downFactor inputs, upFactor outputs
  int blockInput_;   // in inputs

  std::vector<double> previous_, current_;  // the last two blocks of each input branch
  std::vector<double> spectra_;             // of the last blocks, a ring
  int newest_ = 0;                          // its newest place
  std::vector<double> sum_;                 // spectrum of one output branch
  std::vector<double> branch_;              // one output branch of a block
  std::vector<double> block_;               // the block that is doled out
  std::vector<double> result_;              // for calls that reach over a block's end
  int inputPosition_ = 0;
  int outputPosition_ = 0;
  int latencyLeft_ = 0;  // outputs still to drop
};

}  // namespace vellumic::resample
