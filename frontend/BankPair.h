// Both rate conversions of a stream, as one part of the hand-over.
#pragma once

#include "frontend/LiveCount.h"
#include "frontend/ResamplerBank.h"

namespace vellumic {

class BankPair : public LiveCount<BankPair> {
 public:
  BankPair(int channels, double deviceRate, double internalRate)
      : inputBank(channels, deviceRate, internalRate, longestRun(deviceRate, internalRate)),
        outputBank(channels, internalRate, deviceRate, longestRun(deviceRate, internalRate)) {}

  // How many frames may pass through both banks at a time, with the result of single frames. A
  // device slower than the internal rate makes the rings run over, which shows frame by frame; so
  // may rings of a few samples, where one sample brings thousands.
  int longestRun() const noexcept { return inputBank.runLength(); }

  ResamplerBank inputBank, outputBank;

 private:
  static constexpr double leastRateForRuns = 1000.0;  // Hz

  static constexpr int longestRun(double deviceRate, double internalRate) noexcept {
    const bool runs = internalRate >= leastRateForRuns && deviceRate >= internalRate;
    return runs ? ResamplerBank::longestRun : 1;
  }
};

}  // namespace vellumic
