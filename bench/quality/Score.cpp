#include "bench/quality/Score.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>

#include "filters/BiquadSection.h"

namespace vellumic::quality {
namespace {

constexpr double settling = 4.0;  // s given to the noise estimate before its pauses count
constexpr int alignmentReach = 600;

using View = std::span<const float>;

double energy(View signal) {
  double sum = 0.0;
  for (const float x : signal) sum += static_cast<double>(x) * x;
  return sum;
}

double dot(View a, View b) {
  double sum = 0.0;
  for (std::size_t n = 0; n < a.size(); ++n) sum += static_cast<double>(a[n]) * b[n];
  return sum;
}

double decibels(double ratio) { return 10.0 * std::log10(std::max(ratio, 1e-20)); }

bool inside(const std::vector<Span>& spans, double time) {
  return std::any_of(spans.begin(), spans.end(),
                     [time](const Span& s) { return time >= s.from && time < s.to; });
}

// The samples of the times for which `wanted` holds, chosen in steps of 10 ms.
template <class Wanted>
Signal gathered(const Signal& signal, Wanted wanted) {
  constexpr std::size_t step = 160;
  Signal out;
  for (std::size_t n = 0; n + step <= signal.size(); n += step)
    if (wanted(static_cast<double>(n) / sceneRate))
      out.insert(out.end(), signal.begin() + static_cast<std::ptrdiff_t>(n),
                 signal.begin() + static_cast<std::ptrdiff_t>(n + step));
  return out;
}

// As the array pipeline's own high-pass leaves it.
Signal highPassed(Signal signal) {
  BiquadSection filter;
  filter.type = static_cast<int>(BiquadType::HighPass);
  filter.frequency = 150.0F;
  filter.sampleRate = static_cast<float>(sceneRate);
  filter.design();
  for (float& sample : signal) filter.process(sample);
  return signal;
}

// The output moved to where it matches the clean speech best.
Signal aligned(const Signal& output, const Signal& speech) {
  if (energy(speech) == 0.0) return output;
  int best = 0;
  double most = -1.0;
  const auto size = static_cast<int>(std::min(output.size(), speech.size()));
  for (int shift = -alignmentReach; shift <= alignmentReach; ++shift) {
    double sum = 0.0;
    for (int n = alignmentReach; n < size - alignmentReach; ++n)
      sum += static_cast<double>(output[static_cast<std::size_t>(n + shift)]) *
             speech[static_cast<std::size_t>(n)];
    if (std::abs(sum) > most) most = std::abs(sum), best = shift;
  }
  Signal moved(output.size());
  for (int n = 0; n < static_cast<int>(output.size()); ++n)
    if (n + best >= 0 && n + best < static_cast<int>(output.size()))
      moved[static_cast<std::size_t>(n)] = output[static_cast<std::size_t>(n + best)];
  return moved;
}

void scoreEcho(const SceneSpec& spec, const Scene& scene, const Signal& output, Score& result) {
  constexpr double window = 0.5;
  const double start = spec.farActive.front().from;
  double in = 0.0, out = 0.0;
  for (double t = start; t + window <= spec.seconds; t += window) {
    // A window counts if only the far end talks in it, and has for the time of an echo tail.
    if (!inside(spec.farActive, t) || !inside(spec.farActive, t + window - 0.01)) continue;
    if (inside(spec.nearActive, t) || inside(spec.nearActive, t - 0.3)) continue;
    const auto first = static_cast<std::size_t>(t * sceneRate);
    const auto count = static_cast<std::size_t>(window * sceneRate);
    if (first + count > output.size()) break;
    const double echo = energy(View(scene.echo[0]).subspan(first, count));
    const double left = energy(View(output).subspan(first, count));
    if (decibels(echo / static_cast<double>(count)) < -50.0) continue;  // a pause in the talk
    const double db = decibels(echo / std::max(left, 1e-12));
    const double since = t - start + window;
    result.erle.push_back({t + 0.5 * window, db});
    if (db >= 10.0 && !result.timeTo10Db) result.timeTo10Db = since;
    if (db >= 20.0 && !result.timeTo20Db) result.timeTo20Db = since;
    if (since > 5.0) in += echo, out += left;
  }
  if (in > 0.0) result.erleAt5s = decibels(in / std::max(out, 1e-12));
}

}  // namespace

double scaleInvariantSdr(View target, View signal) {
  const double power = energy(target);
  if (power == 0.0) return 0.0;
  const double scale = dot(target, signal) / power;
  double rest = 0.0;
  for (std::size_t n = 0; n < target.size(); ++n) {
    const double error = signal[n] - scale * target[n];
    rest += error * error;
  }
  return decibels(scale * scale * power / std::max(rest, 1e-20));
}

double filterInvariantSdr(View target, View signal) {
  constexpr int taps = 512, ahead = 256;
  const auto size = static_cast<int>(target.size());
  if (size < 4 * taps || energy(target) == 0.0) return 0.0;
  const auto x = [&](int n) {
    return n >= 0 && n < size ? static_cast<double>(target[static_cast<std::size_t>(n)]) : 0.0;
  };
  Eigen::VectorXd correlation(taps), cross(taps);
  for (int lag = 0; lag < taps; ++lag) {
    double own = 0.0, other = 0.0;
    for (int n = 0; n < size; ++n) {
      own += x(n) * x(n - lag);
      other += static_cast<double>(signal[static_cast<std::size_t>(n)]) * x(n + ahead - lag);
    }
    correlation[lag] = own;
    cross[lag] = other;
  }
  Eigen::MatrixXd toeplitz(taps, taps);
  for (int i = 0; i < taps; ++i)
    for (int j = 0; j < taps; ++j) toeplitz(i, j) = correlation[std::abs(i - j)];
  toeplitz.diagonal().array() += 1e-9 * correlation[0];
  const Eigen::VectorXd filter = toeplitz.ldlt().solve(cross);
  const double explained = filter.dot(cross);  // energy of the filtered target in the signal
  return decibels(explained / std::max(energy(signal) - explained, 1e-20));
}

double segmentalSnr(View target, View signal) {
  constexpr std::size_t frame = 512;
  const double scale = dot(target, signal) / std::max(energy(signal), 1e-20);
  const double quiet = 1e-3 * energy(target) / static_cast<double>(target.size());
  double sum = 0.0;
  int frames = 0;
  for (std::size_t n = 0; n + frame <= target.size(); n += frame) {
    const double power = energy(target.subspan(n, frame));
    if (power < quiet * frame) continue;
    double error = 0.0;
    for (std::size_t i = n; i < n + frame; ++i) {
      const double e = scale * signal[i] - target[i];
      error += e * e;
    }
    sum += std::clamp(decibels(power / std::max(error, 1e-20)), -10.0, 35.0);
    ++frames;
  }
  return frames == 0 ? 0.0 : sum / frames;
}

Score score(const SceneSpec& spec, const Scene& scene, const Signal& rawOutput) {
  const Signal output = aligned(rawOutput, highPassed(scene.speech[0]));
  Score result;
  const auto near = [&](double t) { return inside(spec.nearActive, t); };
  const auto far = [&](double t) {
    return inside(spec.farActive, t) || inside(spec.farActive, t - 0.5);
  };

  const auto pause = [&](double t) {
    return t > settling && !near(t) && !near(t - 0.5) && !far(t);
  };
  if (const Signal before = gathered(scene.noise[0], pause); !before.empty())
    result.noiseAttenuation =
        decibels(energy(before) / std::max(energy(gathered(output, pause)), 1e-12));

  const auto alone = [&](double t) { return t > settling && near(t) && !far(t); };
  if (const Signal clean = gathered(scene.speech[0], alone); !clean.empty()) {
    const Signal in = gathered(scene.mix[0], alone), out = gathered(output, alone);
    const Signal passed = gathered(highPassed(scene.speech[0]), alone);
    result.siSdrIn = scaleInvariantSdr(clean, in);
    result.siSdrOut = std::max(scaleInvariantSdr(clean, out), scaleInvariantSdr(passed, out));
    result.segmentalSnrIn = segmentalSnr(clean, in);
    result.segmentalSnrOut = std::max(segmentalSnr(clean, out), segmentalSnr(passed, out));
    result.nearSdr = filterInvariantSdr(clean, out);
    const double kept = std::max(std::abs(dot(clean, out)) / energy(clean),
                                 std::abs(dot(passed, out)) / energy(passed));
    result.speechLoss = -decibels(kept * kept);
  }

  const auto both = [&](double t) { return t > 5.0 && near(t) && inside(spec.farActive, t); };
  if (const Signal clean = gathered(scene.speech[0], both); !clean.empty())
    result.doubleTalkSdr = filterInvariantSdr(clean, gathered(output, both));

  if (!spec.farActive.empty()) scoreEcho(spec, scene, output, result);
  const View tail = View(output).subspan(output.size() / 2);
  result.outputLevel = decibels(energy(tail) / static_cast<double>(tail.size()));
  return result;
}

}  // namespace vellumic::quality
