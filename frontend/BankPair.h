// Both rate conversions of a stream, as one part of the hand-over.
#pragma once

#include "frontend/LiveCount.h"
#include "frontend/ResamplerBank.h"

namespace vellumic {

struct BankPair : LiveCount<BankPair> {
  BankPair(int channels, double deviceRate, double internalRate)
      : input(channels, deviceRate, internalRate), output(channels, internalRate, deviceRate) {}

  ResamplerBank input, output;
};

}  // namespace vellumic
