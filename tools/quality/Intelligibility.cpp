#include "tools/quality/Intelligibility.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>

#include "spectra/Fft.h"

namespace vellumic::quality {
namespace {

constexpr std::size_t frame = 256, hop = 128, transform = 512;
constexpr std::size_t bandCount = 15, segment = 30;
constexpr double rateIn = 16000.0, rate = 10000.0;
constexpr double dynamicRange = 40.0;  // dB below the loudest frame
constexpr double clipping = 15.0;      // dB of distortion that one moment can have at most

// 16 kHz to 10 kHz by a windowed sinc: the output's positions fall on five phases of the input.
constexpr int kernelHalfTaps = 64, phases = 5, inputPerPhases = 8;
using Kernel = std::array<float, 2 * kernelHalfTaps>;

std::array<Kernel, phases> makeKernels() {
  constexpr double cutoff = 0.96 * rate / rateIn;
  std::array<Kernel, phases> kernels{};
  for (int phase = 0; phase < phases; ++phase)
    for (int tap = 0; tap < 2 * kernelHalfTaps; ++tap) {
      const double fraction = (phase * inputPerPhases % phases) / static_cast<double>(phases);
      const double t = fraction + kernelHalfTaps - 1 - tap, x = std::numbers::pi * cutoff * t;
      kernels[static_cast<std::size_t>(phase)][static_cast<std::size_t>(tap)] =
          static_cast<float>((x == 0.0 ? cutoff : cutoff * std::sin(x) / x) *
                             (0.5 + 0.5 * std::cos(std::numbers::pi * t / (kernelHalfTaps + 1))));
    }
  return kernels;
}

std::vector<float> resampled(View in) {
  static const std::array<Kernel, phases> kernels = makeKernels();
  std::vector<float> padded(in.size() + 2 * kernelHalfTaps);
  std::ranges::copy(in, padded.begin() + kernelHalfTaps - 1);
  std::vector<float> out(in.size() * phases / inputPerPhases);
  for (std::size_t n = 0; n < out.size(); ++n) {
    const Kernel& kernel = kernels[n % phases];
    const float* const from = padded.data() + n * inputPerPhases / phases;
    float sum = 0.0F;
    for (std::size_t tap = 0; tap < kernel.size(); ++tap) sum += kernel[tap] * from[tap];
    out[n] = sum;
  }
  return out;
}

std::array<float, frame> makeWindow() {
  std::array<float, frame> window{};
  for (std::size_t n = 0; n < frame; ++n)
    window[n] = static_cast<float>(
        0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(n + 1) / (frame + 1)));
  return window;
}
const std::array<float, frame> window = makeWindow();

// First bin of each band, and the end of the last: third octaves around 150 Hz * 2^(k/3).
std::array<std::size_t, bandCount + 1> bandEdges() {
  std::array<std::size_t, bandCount + 1> edges{};
  for (std::size_t k = 0; k <= bandCount; ++k)
    edges[k] = static_cast<std::size_t>(
        std::lround(150.0 * std::exp2((static_cast<double>(k) - 0.5) / 3.0) * transform / rate));
  return edges;
}

std::vector<bool> spokenFrames(const std::vector<float>& clean) {
  std::vector<double> levels;
  for (std::size_t n = 0; n + frame <= clean.size(); n += hop) {
    double sum = 0.0;
    for (std::size_t i = 0; i < frame; ++i) {
      const double x = static_cast<double>(window[i]) * clean[n + i];
      sum += x * x;
    }
    levels.push_back(decibels(sum));
  }
  std::vector<bool> spoken;
  spoken.reserve(levels.size());
  const double loudest = levels.empty() ? 0.0 : *std::ranges::max_element(levels);
  for (const double level : levels) spoken.push_back(level > loudest - dynamicRange);
  return spoken;
}

// The spoken frames put together again, without the others.
std::vector<float> withoutSilence(const std::vector<float>& signal,
                                  const std::vector<bool>& spoken) {
  std::vector<float> out(signal.size());
  std::size_t to = 0;
  for (std::size_t f = 0; f < spoken.size(); ++f) {
    if (!spoken[f]) continue;
    for (std::size_t i = 0; i < frame; ++i) out[to + i] += window[i] * signal[f * hop + i];
    to += hop;
  }
  out.resize(to == 0 ? 0 : to + hop);
  return out;
}

// Correlation of two courses of a band over a segment, the second normalised and clipped.
double correlation(const float* x, const float* y) {
  double xx = 0.0, yy = 0.0;
  for (std::size_t m = 0; m < segment; ++m) {
    const double a = x[m * bandCount], b = y[m * bandCount];
    xx += a * a;
    yy += b * b;
  }
  const double scale = std::sqrt(xx / std::max(yy, 1e-30));
  const double most = 1.0 + std::pow(10.0, clipping / 20.0);
  std::array<double, segment> clipped{};
  double meanX = 0.0, meanY = 0.0;
  for (std::size_t m = 0; m < segment; ++m) {
    clipped[m] = std::min(scale * y[m * bandCount], most * x[m * bandCount]);
    meanX += x[m * bandCount] / segment;
    meanY += clipped[m] / segment;
  }
  double xy = 0.0;
  xx = yy = 0.0;
  for (std::size_t m = 0; m < segment; ++m) {
    const double a = x[m * bandCount] - meanX, b = clipped[m] - meanY;
    xy += a * b;
    xx += a * a;
    yy += b * b;
  }
  return xy / std::max(std::sqrt(xx * yy), 1e-30);
}

}  // namespace

Intelligibility::Intelligibility(View target) {
  const std::vector<float> clean = resampled(target);
  spoken_ = spokenFrames(clean);
  clean_ = bandsOf(clean);
}

Intelligibility::Bands Intelligibility::bandsOf(const std::vector<float>& signal) const {
  static const std::array<std::size_t, bandCount + 1> edges = bandEdges();
  const std::vector<float> speech = withoutSilence(signal, spoken_);
  Fft fft(transform);
  std::array<float, transform> block{};
  std::array<std::complex<float>, transform / 2 + 1> bins{};
  Bands bands;
  for (std::size_t n = 0; n + frame <= speech.size(); n += hop) {
    for (std::size_t i = 0; i < frame; ++i) block[i] = window[i] * speech[n + i];
    fft.forward(block.data(), bins.data());
    for (std::size_t band = 0; band < bandCount; ++band) {
      float sum = 0.0F;
      for (std::size_t k = edges[band]; k < edges[band + 1]; ++k) sum += std::norm(bins[k]);
      bands.push_back(std::sqrt(sum));
    }
  }
  return bands;
}

double Intelligibility::operator()(View signal) const {
  const Bands heard = bandsOf(resampled(signal));
  const std::size_t frames = clean_.size() / bandCount;
  if (frames < segment) return 0.0;
  double sum = 0.0;
  for (std::size_t m = 0; m + segment <= frames; ++m)
    for (std::size_t band = 0; band < bandCount; ++band) {
      const std::size_t at = m * bandCount + band;
      sum += correlation(clean_.data() + at, heard.data() + at);
    }
  return sum / static_cast<double>((frames - segment + 1) * bandCount);
}

}  // namespace vellumic::quality
