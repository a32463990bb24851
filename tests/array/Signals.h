// Seeded test signals at 16 kHz.
#pragma once

#include <Eigen/Core>
#include <cmath>
#include <random>

namespace vellumic {

inline constexpr int rate = 16000;
inline constexpr int hop = 128;

inline Eigen::ArrayXf whiteNoise(int samples, float rms, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0F, rms);
  return Eigen::ArrayXf::NullaryExpr(samples, [&] { return normal(random); });
}

inline float decibels(float powerRatio) { return 10.0F * std::log10(powerRatio); }

}  // namespace vellumic
