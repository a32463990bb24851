#include "tools/render/SoundFigures.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace vellumic::tools {
namespace {

double square(float sample) {
  return std::isfinite(sample) ? static_cast<double>(sample) * static_cast<double>(sample) : 0.0;
}

double powerDecibels(double power) { return std::max(silence, 10.0 * std::log10(power)); }

double meanSquare(std::span<const float> samples) {
  double sum = 0.0;
  for (const float sample : samples) sum += square(sample);
  return samples.empty() ? 0.0 : sum / static_cast<double>(samples.size());
}

std::size_t windowFrames(int rate) { return static_cast<std::size_t>(std::max(1, rate / 20)); }

}  // namespace

SoundFigures soundFigures(const WaveData& wave, std::size_t skipped) {
  const auto channels = static_cast<std::size_t>(wave.format.channels);
  const std::span all(wave.samples);
  const std::span samples = all.subspan(std::min(all.size(), skipped * channels));
  SoundFigures figures;
  double largest = 0.0;
  for (const float sample : samples) {
    largest = std::max(largest, square(sample));
    figures.clipped += std::abs(sample) >= 1.0F ? 1 : 0;
  }
  figures.peak = powerDecibels(largest);

  const std::vector<float> whole = firstChannel(wave);
  const std::span first = std::span(whole).subspan(std::min(whole.size(), skipped));
  figures.level = powerDecibels(meanSquare(first));
  const std::size_t window = windowFrames(wave.format.sampleRate);
  std::vector<double> powers;
  for (std::size_t n = 0; n + window <= first.size(); n += window)
    powers.push_back(meanSquare(first.subspan(n, window)));
  if (powers.empty()) return figures;
  std::ranges::sort(powers);
  const std::size_t quiet = std::max<std::size_t>(1, powers.size() / 10);
  const auto end = powers.begin() + static_cast<std::ptrdiff_t>(quiet);
  figures.noise =
      powerDecibels(std::accumulate(powers.begin(), end, 0.0) / static_cast<double>(quiet));
  return figures;
}

std::vector<float> firstChannel(const WaveData& wave) {
  std::vector<float> first;
  first.reserve(wave.frames());
  const auto channels = static_cast<std::size_t>(wave.format.channels);
  for (std::size_t n = 0; n < wave.samples.size(); n += channels) first.push_back(wave.samples[n]);
  return first;
}

std::vector<std::pair<double, double>> levelOverTime(std::span<const float> samples, int rate) {
  std::vector<std::pair<double, double>> levels;
  const std::size_t window = windowFrames(rate);
  for (std::size_t n = 0; n + window <= samples.size(); n += window)
    levels.emplace_back((static_cast<double>(n) + 0.5 * static_cast<double>(window)) / rate,
                        powerDecibels(meanSquare(samples.subspan(n, window))));
  return levels;
}

}  // namespace vellumic::tools
