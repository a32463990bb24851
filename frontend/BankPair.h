// Both rate conversions of a stream, as one part of the hand-over.
#pragma once

#include "frontend/LiveCount.h"
#include "frontend/ResamplerBank.h"

namespace vellumic {

struct BankPair : LiveCount<BankPair> {
  BankPair(int channels, double deviceRate, double internalRate)
      : inputBank(channels, deviceRate, internalRate),
        outputBank(channels, internalRate, deviceRate) {}

  // Frames that may pass through both banks at a time, with the result of single frames. A device
  // slower than the internal rate makes the rings run over, which shows frame by frame; so may
  // rings of a few samples.
  int longestRun() const noexcept {
    const double deviceRate = inputBank.sourceRate(), internalRate = inputBank.destinationRate();
    return internalRate >= leastRateForRuns && deviceRate >= internalRate
               ? ResamplerBank::longestRun
               : 1;
  }

  ResamplerBank inputBank, outputBank;

 private:
  static constexpr double leastRateForRuns = 1000.0;  // Hz
};

}  // namespace vellumic
