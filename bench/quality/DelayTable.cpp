#include "bench/quality/DelayTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "parameters/PipelineSettings.h"
#include "tools/quality/Correlation.h"
#include "tools/quality/Material.h"
#include "tools/quality/Parallel.h"
#include "tools/quality/SceneCatalogue.h"

namespace vellumic::quality {
namespace {

Signal sumOf(const Channels& channels) {
  Signal sum = channels.front();
  for (std::size_t c = 1; c < channels.size(); ++c)
    for (std::size_t n = 0; n < sum.size(); ++n) sum[n] += channels[c][n];
  return sum;
}

// Samples from the loudspeakers' signal to its echo, as the delay estimator would hear it.
int echoLag(const Scene& scene) {
  constexpr int longest = 8192;
  const auto match = crossCorrelation(sumOf(scene.far), highPassed(sumOf(scene.echo)), 0, longest);
  return static_cast<int>(
      std::ranges::max_element(match, {}, [](double x) { return std::abs(x); }) - match.begin());
}

// The delay that puts an echo of this lag a tenth of a block behind the filter's start. A block is
// cancelled by the references of the block before and what its last call of 10 ms brought beyond.
int rightDelay(int lag, const RawValues& settings) {
  constexpr int call = 160;
  const int block = acceptedBlockSize(value(settings, Raw::blockSize), 1024);
  const int beyond = (block + call - 1) / call * call - block;
  return lag - (block - beyond) - static_cast<int>(std::lround(0.1 * block));
}

// Runs whose delay is off by more than a few samples, and by more than the chain itself tolerates.
struct Off {
  int slightly = 0, much = 0;

  void add(int error) {
    slightly += std::abs(error) > 8;
    much += std::abs(error) > 31;
  }
  std::string text() const { return std::to_string(slightly) + " (" + std::to_string(much) + ")"; }
};

struct Counts {
  int runs = 0, early = 0;
  Off first, atStart, last;
  double longest = 0.0;  // s

  void add(const Take& take, int right, double end) {
    constexpr double start = 3.0;  // s
    ++runs;
    const auto& delays = take.delays;
    if (delays.empty()) return;
    first.add(delays.front().second - right);
    last.add(delays.back().second - right);
    early += delays.front().first <= start;
    double stay = 0.0;
    for (std::size_t n = 0; n < delays.size(); ++n) {
      const double until = n + 1 < delays.size() ? delays[n + 1].first : end;
      const int error = delays[n].second - right;
      if (delays[n].first <= start && until > start) atStart.add(error);
      stay = std::abs(error) > 8 ? stay + until - delays[n].first : 0.0;
      longest = std::max(longest, stay);
    }
  }
};

// Of each chain.
std::vector<Counts> countsOf(const TableJob& job, const std::string& name, int microphones) {
  std::vector<Counts> counts(job.chains.size());
  for (const std::uint64_t seed : job.seeds) {
    const auto spec = sceneNamed(name, seed, microphones);
    if (!spec)
      throw std::runtime_error("scene '" + name + "' is not known: see `vellumic-quality list`");
    const Scene scene = makeScene(*spec, job.nearTalk, job.farTalk);
    const auto material = sceneMaterial(name, *spec, scene);
    const int lag = echoLag(scene);
    std::vector<Take> takes(shiftCount);
    for (std::size_t chain = 0; chain < job.chains.size(); ++chain) {
      const RawValues& settings = job.chains[chain].values;
      inParallel(shiftCount, std::thread::hardware_concurrency(), [&](std::size_t n) {
        takes[n] = material->render(settings, cutOf(settings, static_cast<int>(n)));
      });
      for (const Take& take : takes)
        counts[chain].add(take, rightDelay(lag, settings), spec->seconds);
    }
  }
  return counts;
}

}  // namespace

void printDelays(const TableJob& job) {
  std::cout << "| scene | mics | chain | runs | set within 3 s | off when first set | off at 3 s "
               "| off at the end | longest, s |\n|---|---|---|---|---|---|---|---|---|\n";
  for (const std::string& name : job.scenes)
    for (const int microphones : job.microphones) {
      const std::vector<Counts> all = countsOf(job, name, microphones);
      for (std::size_t chain = 0; chain < all.size(); ++chain) {
        const Counts& counts = all[chain];
        char longest[32];
        std::snprintf(longest, sizeof longest, "%.1f", counts.longest);
        std::cout << "| " << name << " | " << microphones << " | " << job.chains[chain].label
                  << " | " << counts.runs << " | " << counts.early << " | " << counts.first.text()
                  << " | " << counts.atStart.text() << " | " << counts.last.text() << " | "
                  << longest << " |" << std::endl;
      }
    }
}

}  // namespace vellumic::quality
