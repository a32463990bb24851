#include "tools/host/selftest/Sounds.h"

#include <cmath>
#include <numbers>
#include <random>

#include "parameters/SettingsFile.h"

namespace vellumic::tools {

RawValues settingsWith(const std::vector<std::string>& assignments) {
  RawValues values = factorySettings();
  SettingsWarnings warnings;
  for (const std::string& assignment : assignments) applyAssignment(assignment, values, warnings);
  return values;
}

void Sine::fill(std::vector<float>& samples) {
  for (std::size_t frame = 0; frame < samples.size() / channels_; ++frame) {
    const auto value = static_cast<float>(std::sin(2.0 * std::numbers::pi * phase_));
    for (unsigned c = 0; c < channels_; ++c) samples[frame * channels_ + c] = amplitude_ * value;
    phase_ += step_;
    phase_ -= std::floor(phase_);
  }
}

double decibelsOf(double ratio) { return 20.0 * std::log10(ratio); }

double powerOf(const float* samples, std::size_t count) {
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i) sum += double{samples[i]} * double{samples[i]};
  return count == 0 ? 0.0 : sum / static_cast<double>(count);
}

std::vector<float> evenNoise(std::size_t count) {
  std::mt19937 random(1);
  std::vector<float> noise(count);
  for (float& sample : noise) sample = static_cast<float>(random()) / 4294967296.0F - 0.5F;
  return noise;
}

}  // namespace vellumic::tools
