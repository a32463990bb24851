// Speech presence probability of one microphone, per frequency bin.
//
// T. Gerkmann, R. C. Hendriks, "Unbiased MMSE-Based Noise Power Estimation with Low Complexity and
// Low Tracking Delay", IEEE TASLP 20(4), 2012: a soft decision under a fixed a priori ratio of
// 15 dB, a noise update weighted by it, and a guard against stagnation.
//
// Thread: audio thread only, after construction.
#pragma once

#include "array/AlgorithmBase.h"
#include "array/BoundedValue.h"

namespace vellumic {

class ActivityEstimator final : public RealAlgorithm {
 public:
  ActivityEstimator(int binCount, float frameRate);  // frameRate in frames per second

  bool init(bool resetChildren) override;

  // power: |X|^2, binCount x 1. probability: 0 to 1, binCount; after the stagnation guard.
  // Disabled, nothing moves and `probability` stays as it is.
  void process(const Input& power, Output probability) noexcept VELLUMIC_NONBLOCKING override;

  BoundedFloat smoothingTimeConstant = BoundedFloat::atLeast(1e-6F, 0.152F);  // s
  BoundedFloat noiseTimeConstant = BoundedFloat::atLeast(1e-6F, 0.072F);      // s
  // Tracked noise power per bin, in the unit of the input. Never below the smallest normal float:
  // exact silence would otherwise end in 0 / 0.
  Eigen::ArrayXf noisePower;
  BoundedInt binCount = BoundedInt::atLeast(1, 1);
  BoundedFloat frameRate = BoundedFloat::atLeast(1.0F, 1.0F);
  BoundedFloat smoothingRate, noiseRate;  // derived from the time constants
  BoundedFloat likelihoodScale{1.0F};
  // With xi = 10^1.5: bias -ln(1 + xi), slope xi / (1 + xi).
  BoundedFloat likelihoodBias{-3.4850106F};
  BoundedFloat likelihoodSlope{0.96934658F};
  Eigen::ArrayXf smoothedProbability;  // before the guard
};

}  // namespace vellumic
