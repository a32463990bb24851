// Seeded test signals at 16 kHz.
#pragma once

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace vellumic {

inline constexpr int rate = 16000;
inline constexpr int hop = 128;
inline constexpr int framesPerSecond = 125;

inline Eigen::ArrayXf whiteNoise(int samples, float rms, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0F, rms);
  return Eigen::ArrayXf::NullaryExpr(samples, [&] { return normal(random); });
}

// Voiced syllables of 250 ms with pauses: harmonics up to 4 kHz that fall with frequency, a
// wandering pitch, about 0.1 RMS while sounding.
inline Eigen::ArrayXf speechLike(int samples) {
  Eigen::ArrayXf signal(samples);
  float phase = 0.0F;
  for (int n = 0; n < samples; ++n) {
    const float seconds = static_cast<float>(n) / rate;
    const float pitch = 150.0F + 30.0F * std::sin(7.0F * seconds);
    phase = std::fmod(phase + 2.0F * std::numbers::pi_v<float> * pitch / rate,
                      2.0F * std::numbers::pi_v<float>);
    const float syllable =
        std::max(0.0F, std::sin(2.0F * std::numbers::pi_v<float> * 2.0F * seconds)) *
        (std::fmod(seconds, 3.0F) < 2.0F ? 1.0F : 0.0F);
    float sum = 0.0F;
    for (int harmonic = 1; static_cast<float>(harmonic) * pitch < 4000.0F; ++harmonic)
      sum += std::sin(static_cast<float>(harmonic) * phase) / static_cast<float>(harmonic);
    signal[n] = 0.15F * syllable * sum;
  }
  return signal;
}

inline float decibels(float powerRatio) { return 10.0F * std::log10(powerRatio); }

}  // namespace vellumic
