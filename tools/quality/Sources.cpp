#include "tools/quality/Sources.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace vellumic::quality {
namespace {

double rms(const Channels& channels, const std::vector<Span>& spans) {
  const Signal& first = channels.front();
  double sum = 0.0;
  std::size_t count = 0;
  for (const Span& span : spans)
    for (std::size_t n = sceneSamples(span.from); n < std::min(sceneSamples(span.to), first.size());
         ++n, ++count)
      sum += static_cast<double>(first[n]) * first[n];
  return count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
}

// Six harmonics that die away, panned.
void pluck(Channels& sides, std::size_t start, double frequency, double pan) {
  const std::size_t end = std::min(sides[0].size(), start + sceneSamples(1.5));
  for (int harmonic = 1; harmonic <= 6 && harmonic * frequency < 0.45 * sceneRate; ++harmonic) {
    const double step = 2.0 * std::numbers::pi * harmonic * frequency / sceneRate;
    for (std::size_t n = start; n < end; ++n) {
      const double t = static_cast<double>(n - start);
      const double x = std::sin(step * t) * std::exp(-t * harmonic / (0.8 * sceneRate)) / harmonic;
      sides[0][n] += static_cast<float>((1.0 - pan) * x);
      sides[1][n] += static_cast<float>(pan * x);
    }
  }
}

}  // namespace

Signal gated(const Signal& recording, const std::vector<Span>& active, std::size_t length,
             std::size_t start) {
  Signal out(length);
  std::size_t position = start;
  for (const Span& span : active)
    for (std::size_t n = sceneSamples(span.from); n < std::min(sceneSamples(span.to), length); ++n)
      out[n] = recording[position++ % recording.size()];
  return out;
}

Signal pinkNoise(std::size_t length, std::mt19937_64& random) {
  std::normal_distribution<float> normal;
  Signal wave(length);
  float b0 = 0.0F, b1 = 0.0F, b2 = 0.0F;
  for (float& sample : wave) {
    const float white = normal(random);
    b0 = 0.99765F * b0 + white * 0.0990460F;
    b1 = 0.96300F * b1 + white * 0.2965164F;
    b2 = 0.57000F * b2 + white * 1.0526913F;
    sample = b0 + b1 + b2 + white * 0.1848F;
  }
  return wave;
}

Signal keyboard(std::size_t length, std::mt19937_64& random) {
  std::normal_distribution<float> normal;
  std::uniform_real_distribution<double> pause(0.06, 0.19);
  Signal out(length);
  const auto burst = [&](double seconds, float level) {
    const std::size_t start = sceneSamples(seconds);
    float before = 0.0F;
    for (std::size_t n = start; n < std::min(length, start + 400); ++n) {
      const float white = normal(random);
      out[n] += level * (white - before) * std::exp(-static_cast<float>(n - start) / 50.0F);
      before = white;
    }
  };
  for (double t = 0.5; t * sceneRate < static_cast<double>(length);) {
    burst(t, 1.0F);  // down
    t += pause(random);
    burst(t, 0.4F);  // and up
    t += pause(random);
  }
  return out;
}

Channels music(std::size_t length, std::mt19937_64& random) {
  constexpr std::array scale{0, 2, 4, 7, 9, 12, 14, 16};  // semitones
  std::uniform_int_distribution<std::size_t> degree(0, scale.size() - 1);
  std::uniform_real_distribution<double> pan(0.2, 0.8);
  std::normal_distribution<float> normal;
  Channels sides(2, Signal(length));
  const auto note = [&](int octaves) {
    return 220.0 * std::exp2(scale[degree(random)] / 12.0 + octaves);
  };
  for (std::size_t beat = 0; beat * 4000 < length; ++beat) {
    const std::size_t start = beat * 4000;  // a quarter of a second
    pluck(sides, start, note(0), pan(random));
    pluck(sides, start, note(1), pan(random));
    if (beat % 4 == 0) pluck(sides, start, note(-1), 0.5);
    for (std::size_t n = start; n < std::min(length, start + 800); ++n) {
      const float hat = 0.1F * normal(random) * std::exp(-static_cast<float>(n - start) / 150.0F);
      for (Signal& side : sides) side[n] += hat;
    }
  }
  return sides;
}

Signal delayed(const Signal& signal, double delay, double driftPpm) {
  constexpr int halfTaps = 16;
  Signal out(signal.size());
  for (std::size_t n = 0; n < out.size(); ++n) {
    const double at = static_cast<double>(n) * (1.0 - 1e-6 * driftPpm) - delay * sceneRate;
    const int centre = static_cast<int>(std::floor(at));
    const double fraction = at - centre;
    if (fraction < 1e-9) {
      if (centre >= 0 && centre < static_cast<int>(signal.size()))
        out[n] = signal[static_cast<std::size_t>(centre)];
      continue;
    }
    double sum = 0.0, sine = std::sin(std::numbers::pi * (fraction + halfTaps - 1));
    for (int k = centre - halfTaps + 1; k <= centre + halfTaps; ++k, sine = -sine) {
      if (k < 0 || k >= static_cast<int>(signal.size())) continue;
      const double t = at - k;
      const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * t / (halfTaps + 1));
      sum += signal[static_cast<std::size_t>(k)] * window * sine / (std::numbers::pi * t);
    }
    out[n] = static_cast<float>(sum);
  }
  return out;
}

void setLevel(Channels& channels, const std::vector<Span>& spans, double db) {
  const double level = rms(channels, spans);
  if (level == 0.0) return;
  const float gain = static_cast<float>(std::pow(10.0, db / 20.0) / level);
  for (Signal& channel : channels)
    for (float& sample : channel) sample *= gain;
}

}  // namespace vellumic::quality
