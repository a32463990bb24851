// Filter that may raise or lower the rate by a whole number: overlap-save convolution in equal
// blocks.
//
// A block of input is transformed when it is full; products with the blocks of the filter's
// spectrum are summed and transformed back (uniformly partitioned convolution: T. G. Stockham,
// "High-speed convolution and correlation", 1966, with a delay line in the frequency domain).
// Neither the zeros stuffed in to raise the rate nor the outputs dropped to lower it are computed:
// the filter's polyphase branches give one output of a frame each, or take one input each.
//
// The results of a block are doled out one by one as the next block comes in, so no call returns a
// burst; the start-up delay is dropped, so the first output belongs to the first input. Calls of
// any length give the same stream; longer ones move the samples of a block at once.
#pragma once

#include <memory>
#include <vector>

#include "platform/Realtime.h"
#include "resample/CDSPFIRFilter.h"
#include "resample/CDSPProcessor.h"
#include "resample/CDSPRealFFTKeeper.h"
#include "resample/kernels/ConverterKernels.h"

namespace vellumic::resample {

class CDSPBlockConvolver final : public CDSPProcessor {
 public:
  // up, down: whole factors, at least one of them 1; the filter has max(up, down) branches.
  CDSPBlockConvolver(std::shared_ptr<const CDSPFIRFilter> filter, int up, int down, int maxInput);

  int inputBeforeOutput(int nextInput) const noexcept override;
  int maxOutputLength(int maxInput) const noexcept override;
  void pace(std::span<int> counts) const noexcept VELLUMIC_NONBLOCKING override;
  void clear() noexcept override;
  // Inputs after which nothing older has a part in what comes out, with a block to spare.
  int memory() const noexcept { return (filter_->blocks() + 4) * blockLength_ * downFactor_; }
  double ratio() const noexcept { return static_cast<double>(upFactor_) / downFactor_; }
  // Goes on as if it had had the input of `leader`, which runs the same filter.
  void follow(const CDSPBlockConvolver& leader) noexcept VELLUMIC_NONBLOCKING;
  int process(const double* input, int count,
              const double*& output) noexcept VELLUMIC_NONBLOCKING override;

 private:
  void convolve() noexcept;
  void sumBranch(int out) noexcept;
  int processOne(double sample, const double*& output) noexcept;
  int processRun(const double* input, int count, const double*& output) noexcept;
  int dole(int first, int frames, const double*& output) noexcept;
  int delayOutputs() const noexcept;

  std::shared_ptr<const CDSPFIRFilter> filter_;
  CDSPRealFFTKeeper transform_;
  CDSPRealFFT::Scratch scratch_;
  int upFactor_;
  int downFactor_;
  int blockLength_;  // in frames: downFactor inputs, upFactor outputs

  std::vector<double> incoming_;            // the block that comes in
  std::vector<double> previous_, current_;  // the last two blocks of each input branch
  std::vector<double> spectra_;             // of the last blocks, a ring
  int newest_ = 0;                          // its newest place
  std::vector<SpectrumProduct> products_;   // of one output branch
  std::vector<double> sum_;                 // their sum
  std::vector<double> branch_;              // its samples
  std::vector<double> block_;               // the block that is doled out
  std::vector<double> result_;              // outputs of a call with a run of samples
  int position_ = 0;                        // of the next input in its block
  int frame_ = 0;                           // of the next input: its place in the block
  int inputBranch_ = 0;                     // place of the next input in its frame
  int latencyLeft_ = 0;                     // outputs still to drop
};

}  // namespace vellumic::resample
