#include "tools/render/Trace.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace vellumic::tools {
namespace {

constexpr double noteEvery = 0.01;      // s
constexpr double settling = 5.0;        // s
constexpr float audibleEnergy = 1e-6F;  // -60 dBFS
constexpr double leastEnergy = 1e-12;

// Energies before and after, of an echo stage.
struct Energies {
  double before = 0.0, after = 0.0;

  void add(const PipelineProbe& probe) {
    before += static_cast<double>(probe.microphoneEnergy);
    after += static_cast<double>(probe.residualEnergy);
  }
  double decibels() const {
    return 10.0 * std::log10(std::max(before, leastEnergy) / std::max(after, leastEnergy));
  }
};

}  // namespace

void Trace::add(const CallReport& call) {
  constexpr double rounding = 1e-9;
  if (!points_.empty() && !call.completedBlock &&
      call.seconds < points_.back().seconds + noteEvery - rounding)
    return;
  points_.push_back({.seconds = call.seconds, .probe = call.probe});
}

bool echoCancelled(const std::vector<TracePoint>& trace, std::size_t n) {
  const std::int64_t before = n == 0 ? 0 : trace[n - 1].probe.cancelledBlocks;
  return trace[n].probe.cancelledBlocks != before && trace[n].probe.referenceEnergy > audibleEnergy;
}

std::vector<std::pair<double, double>> erleOverTime(const Trace& trace, double window) {
  const std::vector<TracePoint>& points = trace.points();
  std::vector<std::pair<double, double>> line;
  std::vector<std::size_t> blocks;  // all that completed
  for (std::size_t n = 0; n < points.size(); ++n) {
    if (points[n].probe.blocks == (n == 0 ? 0 : points[n - 1].probe.blocks)) continue;
    blocks.push_back(n);
    Energies sum;
    for (auto block = blocks.rbegin();
         block != blocks.rend() && points[*block].seconds > points[n].seconds - window; ++block)
      if (echoCancelled(points, *block)) sum.add(points[*block].probe);
    line.emplace_back(points[n].seconds, echoCancelled(points, n)
                                             ? sum.decibels()
                                             : std::numeric_limits<double>::quiet_NaN());
  }
  return line;
}

std::optional<ErleFigures> erleFigures(const Trace& trace) {
  std::optional<double> start;
  std::vector<double> settled;
  for (const auto& [seconds, decibels] : erleOverTime(trace, erleWindow)) {
    if (!std::isfinite(decibels)) continue;
    if (!start) start = seconds;
    if (seconds >= *start + settling) settled.push_back(decibels);
  }
  if (settled.empty()) return std::nullopt;
  std::ranges::sort(settled);
  return ErleFigures{.mean = std::accumulate(settled.begin(), settled.end(), 0.0) /
                             static_cast<double>(settled.size()),
                     .best = settled[settled.size() - 1 - settled.size() / 10]};
}

double gainDecibels(float linear) {
  return 20.0 * std::log10(std::max(static_cast<double>(linear), 1e-6));
}

}  // namespace vellumic::tools
