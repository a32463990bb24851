// One stage of the rate converter, or a whole chain of them: a stream of doubles in, a stream of
// doubles out at another rate, with the first output aligned in time with the first input.
//
// Thread: construct, clear and destroy off the audio thread; process belongs to one thread.
#pragma once

#include <span>

#include "platform/Realtime.h"

namespace vellumic::resample {

class CDSPProcessor {
 public:
  virtual ~CDSPProcessor() = default;

  // Whole samples of delay still in the output. Every stage drops its own: 0.
  virtual int latency() const noexcept { return 0; }
  // Delay in samples, 0 to 1, that the next stage still has to take out.
  virtual double latencyFraction() const noexcept { return 0.0; }
  // Inputs that go in before the first output, if the stage behind swallows nextInput of ours
  // before its own: the output comes with the input after these.
  virtual int inputBeforeOutput(int nextInput) const noexcept = 0;
  // No call with up to maxInput samples returns more than this.
  virtual int maxOutputLength(int maxInput) const noexcept = 0;
  // When the outputs come: counts[n] samples that the n-th step of the next call brings become the
  // number that leave the stage with it.
  virtual void pace(std::span<int> counts) const noexcept VELLUMIC_NONBLOCKING = 0;
  // Back to the state after construction.
  virtual void clear() noexcept = 0;
  // Takes count samples (0 up to the maxInput of the constructor), points output at the result and
  // returns its length, often 0. The result stays until the next call; it may be the input itself.
  virtual int process(const double* input, int count,
                      const double*& output) noexcept VELLUMIC_NONBLOCKING = 0;

 protected:
  CDSPProcessor() = default;
  CDSPProcessor(const CDSPProcessor&) = default;
  CDSPProcessor& operator=(const CDSPProcessor&) = default;
};

}  // namespace vellumic::resample
