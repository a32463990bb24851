#include "bench/quality/ScoreTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "bench/quality/SpeexChain.h"
#include "tools/quality/Material.h"
#include "tools/quality/Parallel.h"
#include "tools/quality/SceneCatalogue.h"

namespace vellumic::quality {
namespace {

std::string number(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string cell(const Summary& summary, Figure figure, int digits = 1) {
  if (!summary.mean[figure]) return "-";
  const std::string mean = number(*summary.mean[figure], digits);
  const std::string worst = number(*summary.worst[figure], digits);
  return mean == worst ? mean : mean + " (" + worst + ")";
}

// Before and after.
std::string change(const Summary& summary, Figure figure, int digits = 1) {
  const auto& before = summary.mean[*info(figure).input];
  if (!before) return "-";
  return number(*before, digits) + " > " + cell(summary, figure, digits);
}

// A block of the chain is 1024 samples; SpeexDSP gets the same shifts.
Signal speexOutput(const SceneSpec& spec, const Scene& scene, int shift) {
  const std::ptrdiff_t cut = shift * 1024 / shiftCount;
  const auto later = [cut](Channels channels) {
    for (Signal& channel : channels) channel.erase(channel.begin(), channel.begin() + cut);
    return channels;
  };
  const double tail = std::max(0.128, spec.systemDelay + 0.1);
  Signal output = runSpeex(later(scene.mix), later(scene.far), tail).output;
  output.insert(output.begin(), static_cast<std::size_t>(cut), 0.0F);
  return output;
}

// Per chain the figures of all shifts of one scene.
using ChainScores = std::vector<std::vector<Figures>>;

ChainScores scoresOf(const TableJob& job, const SceneSpec& spec) {
  const Scene scene = makeScene(spec, job.nearTalk, job.farTalk);
  const auto material = sceneMaterial(spec.name, spec, scene);
  const std::size_t chains = job.chains.size() + (job.yardstick ? 1 : 0);
  ChainScores scores(chains, std::vector<Figures>(shiftCount));
  inParallel(chains * shiftCount, std::thread::hardware_concurrency(), [&](std::size_t n) {
    const std::size_t chain = n / shiftCount, shift = n % shiftCount;
    const int quarter = static_cast<int>(shift);
    scores[chain][shift] =
        (chain < job.chains.size()
             ? material->judge(job.chains[chain].values, quarter)
             : material->score(
                   {.output = speexOutput(spec, scene, quarter), .erle = {}, .delays = {}}))
            .figures;
  });
  return scores;
}

SceneSpec specOf(const std::string& name, std::uint64_t seed, int microphones) {
  if (const auto spec = sceneNamed(name, seed, microphones)) return *spec;
  throw std::runtime_error("scene '" + name + "' is not known: see `vellumic-quality list`");
}

}  // namespace

const char* const scoreHead =
    "| scene | mics | chain | ERLE from 5 s, dB | from 4 s after a pause | to 10 dB, s | to 20 dB, "
    "s | double talk SDR, dB "
    "| near SDR, dB | SI-SDR, dB | segmental SNR, dB | STOI | speech loss, dB "
    "| noise attenuation, dB | output level, dBFS |\n"
    "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n";

std::string scoreRow(const std::string& scene, int microphones, const std::string& chain,
                     const Summary& summary) {
  std::string row = "| " + scene + " | " + std::to_string(microphones) + " | " + chain;
  for (const std::string& text :
       {cell(summary, Figure::erle), cell(summary, Figure::erleAfterPause),
        cell(summary, Figure::timeTo10Db), cell(summary, Figure::timeTo20Db),
        cell(summary, Figure::doubleTalkSdr), cell(summary, Figure::nearSdr),
        change(summary, Figure::siSdr), change(summary, Figure::segmentalSnr),
        change(summary, Figure::stoi, 2), cell(summary, Figure::speechLoss),
        cell(summary, Figure::noiseAttenuation), cell(summary, Figure::outputLevel)})
    row += " | " + text;
  return row + " |\n";
}

void printTable(const TableJob& job) {
  std::cout << scoreHead;
  for (const std::string& scene : job.scenes)
    for (const int microphones : job.microphones) {
      ChainScores all;
      for (const std::uint64_t seed : job.seeds) {
        const ChainScores scores = scoresOf(job, specOf(scene, seed, microphones));
        all.resize(scores.size());
        for (std::size_t chain = 0; chain < scores.size(); ++chain)
          all[chain].insert(all[chain].end(), scores[chain].begin(), scores[chain].end());
      }
      for (std::size_t chain = 0; chain < all.size(); ++chain)
        std::cout << scoreRow(scene, microphones,
                              chain < job.chains.size() ? job.chains[chain].label : "speex",
                              summarise(all[chain]));
      std::cout.flush();
    }
}

}  // namespace vellumic::quality
