#include "bench/quality/DelayTable.h"

#include <cmath>
#include <iostream>
#include <stdexcept>

#include "tools/quality/Material.h"
#include "tools/quality/Parallel.h"
#include "tools/quality/SceneCatalogue.h"

namespace vellumic::quality {
namespace {

// "0.5 s 341, 2.1 s 352" of the changes until `end`.
std::string changesOf(const Take& take, double end) {
  std::string text;
  for (const auto& [seconds, delay] : take.delays) {
    if (seconds > end) break;
    text += (text.empty() ? "" : ", ") + std::to_string(std::lround(seconds * 10.0) / 10) + "." +
            std::to_string(std::lround(seconds * 10.0) % 10) + " s " + std::to_string(delay);
  }
  return text.empty() ? "-" : text;
}

}  // namespace

void printDelays(const TableJob& job) {
  constexpr std::size_t shifts = shiftCount;
  std::cout
      << "| scene | mics | seed | chain | samples that the echo is late | shift: set within 3 s "
         "| last |\n|---|---|---|---|---|---|---|\n";
  for (const std::string& name : job.scenes)
    for (const int microphones : job.microphones)
      for (const std::uint64_t seed : job.seeds) {
        const auto spec = sceneNamed(name, seed, microphones);
        if (!spec)
          throw std::runtime_error("scene '" + name +
                                   "' is not known: see `vellumic-quality list`");
        const auto material =
            sceneMaterial(name, *spec, makeScene(*spec, job.nearTalk, job.farTalk));
        for (const NamedSettings& chain : job.chains) {
          std::vector<Take> takes(shifts);
          inParallel(shifts, 2, [&](std::size_t n) {
            takes[n] = material->render(chain.values, n * 1024 / shifts);
          });
          for (std::size_t n = 0; n < shifts; ++n) {
            const auto& delays = takes[n].delays;
            std::cout << "| " << name << " | " << microphones << " | " << seed << " | "
                      << chain.label << " | " << std::lround(spec->systemDelay * sceneRate)
                      << " and the way | " << n << ": " << changesOf(takes[n], 3.0) << " | "
                      << (delays.empty() ? "-" : std::to_string(delays.back().second)) << " |\n";
          }
        }
      }
}

}  // namespace vellumic::quality
