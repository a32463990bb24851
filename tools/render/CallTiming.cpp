#include "tools/render/CallTiming.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace vellumic::tools {
namespace {

double percentile(const std::vector<double>& sorted, double share) {
  const auto last = static_cast<double>(sorted.size() - 1);
  return sorted[static_cast<std::size_t>(share * last + 0.5)];
}

std::string line(const char* name, const CallFigures& figures, double periodSeconds) {
  std::array<char, 200> text{};
  std::snprintf(text.data(), text.size(),
                "%-22s %zu, p50 %.1f us, p99 %.1f us, worst %.1f us = %.2f %% of the period\n",
                name, figures.calls, figures.p50, figures.p99, figures.worst,
                figures.worst / (periodSeconds * 1e4));
  return text.data();
}

}  // namespace

void CallTiming::add(double microseconds, bool completesBlock) {
  all_.push_back(microseconds);
  if (completesBlock) blocks_.push_back(microseconds);
}

CallFigures CallTiming::figuresOf(std::vector<double> calls) {
  if (calls.empty()) return {};
  std::ranges::sort(calls);
  return {.calls = calls.size(),
          .p50 = percentile(calls, 0.5),
          .p99 = percentile(calls, 0.99),
          .worst = calls.back()};
}

std::string slownessWarning(const CallTiming& timing, double periodSeconds) {
  constexpr double enginePeriod = 0.01;  // s
  const double period = 1e6 * std::max(periodSeconds, enginePeriod);
  const double usual = timing.completingBlocks().p50;
  if (usual <= period) return {};
  std::array<char, 240> text{};
  std::snprintf(text.data(), text.size(),
                "calls that complete a block took %.1f ms here, the audio engine has %.0f ms: "
                "lower pipeline.block_size or pipeline.internal_rate_hz",
                usual / 1e3, period / 1e3);
  return text.data();
}

std::string timingText(const CallTiming& timing, double periodSeconds, double audioSeconds,
                       double cpuSeconds, double peakMegabytes) {
  std::string text = line("Calls:", timing.all(), periodSeconds);
  if (timing.completingBlocks().calls > 0)
    text += line("  completing a block:", timing.completingBlocks(), periodSeconds);
  std::array<char, 200> rest{};
  std::snprintf(rest.data(), rest.size(), "CPU: %.5f s per second of audio; peak memory %.1f MB\n",
                audioSeconds > 0.0 ? cpuSeconds / audioSeconds : 0.0, peakMegabytes);
  return text + rest.data();
}

}  // namespace vellumic::tools
