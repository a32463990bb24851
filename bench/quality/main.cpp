// vellumic-quality: makes the seeded scenes, runs the yardstick on them and scores recordings.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "bench/quality/DelayTable.h"
#include "bench/quality/SceneFolder.h"
#include "bench/quality/ScoreTable.h"
#include "bench/quality/SpeexChain.h"
#include "parameters/SettingsFile.h"
#include "tools/Arguments.h"
#include "tools/OutputFile.h"
#include "tools/plot/Figure.h"
#include "tools/quality/SceneCatalogue.h"
#include "tools/quality/Score.h"
#include "tools/quality/SoundFiles.h"

namespace vellumic::quality {
namespace {

void make(const std::string& name, std::uint64_t seed, int microphones, const std::string& nearFile,
          const std::string& farFile, const std::string& folder) {
  const auto spec = sceneNamed(name, seed, microphones);
  if (!spec)
    throw std::runtime_error("scene '" + name + "' is not known: see `vellumic-quality list`");
  writeScene({*spec, makeScene(*spec, readChannels(nearFile)[0], readChannels(farFile)[0])},
             folder);
}

// LABEL=REST of an argument.
std::pair<std::string, std::string> labelled(const std::string& text, const std::string& form) {
  const auto sign = text.find('=');
  if (sign == std::string::npos || sign == 0 || sign + 1 == text.size())
    throw std::runtime_error("'" + text + "': write it as " + form);
  return {text.substr(0, sign), text.substr(sign + 1)};
}

void scoreAll(const std::string& folder, const std::vector<std::string>& outputs,
              const std::string& svg) {
  const StoredScene stored = readScene(folder);
  const Scorer scorer(stored.spec, stored.scene);
  plot::Figure figure(
      stored.spec.name + ", " + std::to_string(stored.spec.microphones) + " microphones",
      stored.spec.seconds);
  figure.addSpectrogram("microphone 1", stored.scene.mix[0], sceneRate);
  std::vector<plot::Line> erle;
  for (const std::string& output : outputs) {
    const auto [label, file] = labelled(output, "LABEL=FILE.wav");
    Signal signal = readChannels(file)[0];
    signal.resize(stored.scene.mix[0].size());
    const Score result = scorer(signal);
    std::cout << scoreRow(stored.spec.name, stored.spec.microphones, label,
                          {result.figures, result.figures});
    figure.addSpectrogram(label, signal, sceneRate);
    plot::Line line{label, {}, {}};
    for (const ErlePoint& point : result.erle) {
      line.x.push_back(point.time);
      line.y.push_back(point.db);
    }
    if (!line.x.empty()) erle.push_back(std::move(line));
  }
  if (!erle.empty()) figure.addLines("echo return loss enhancement", "dB", std::move(erle));
  if (!svg.empty()) tools::writeWholeFile(svg, figure.svg());
}

// The level control is off: a gain that moves would blur what is measured.
std::vector<NamedSettings> chainsFrom(const std::vector<std::string>& arguments) {
  std::vector<NamedSettings> chains;
  for (const std::string& argument : arguments) {
    const auto [label, file] = labelled(argument, "LABEL=FILE.toml");
    NamedSettings chain{label, factorySettings()};
    SettingsWarnings warnings;
    applySettingsFile(file, chain.values, warnings);
    chain.values[index(Raw::levelControl)] = 0.0F;
    chains.push_back(chain);
  }
  return chains;
}

constexpr const char* footer = R"(
A scene is a folder of WAV files: mix (the microphones), its parts speech, noise and echo, and far
(the loudspeakers). All are at 16 kHz. `table` renders in memory, over four shifts of the blocks,
with the level control off, and prints means with the worst in brackets.

Examples:
  vellumic-quality list
  vellumic-quality scene everything room --mics 4 --near talker.wav --far caller.wav
  vellumic-quality yardstick room speex.wav
  vellumic-quality table --scenes desk --seeds 1 2 --mics 4 --near talker.wav --far caller.wav \
    --settings factory=settings/factory.toml --settings desk=settings/desk.toml
  vellumic-quality score room ours=clean.wav speex=speex.wav --svg room.svg)";

int run(int argc, char** argv) {
  CLI::App app{"Makes seeded scenes of a talker, noise and loudspeakers, and scores recordings.",
               "vellumic-quality"};
  app.footer(footer);
  app.require_subcommand(1);
  std::string name, nearFile, farFile, folder, output, svg;
  std::vector<std::string> outputs, scenes, settings;
  std::vector<int> counts{2, 4, 8};
  std::vector<std::uint64_t> seeds{1};
  std::uint64_t seed = 1;
  int microphones = 2;
  bool speex = false;

  auto* list = app.add_subcommand("list", "names of the scenes");
  auto* head = app.add_subcommand("head", "head of the score table");
  auto* scene = app.add_subcommand("scene", "make a scene: mix, components and far end as WAV");
  scene->add_option("name", name, "one of `vellumic-quality list`")->required();
  scene->add_option("folder", folder, "made if missing")->required();
  scene->add_option("--mics", microphones, "microphones")->check(CLI::Range(1, 8));
  scene->add_option("--seed", seed, "draws the rooms of the kinds, and all noise");
  scene->add_option("--near", nearFile, "recorded talker, 16 kHz")->required();
  scene->add_option("--far", farFile, "recorded far end, 16 kHz")->required();
  auto* yardstick = app.add_subcommand("yardstick", "run SpeexDSP over a scene");
  yardstick->add_option("folder", folder, "a scene")->required();
  yardstick->add_option("output", output, "WAV to write")->required();
  auto* scoring = app.add_subcommand("score", "one table row per output");
  scoring->add_option("folder", folder, "a scene")->required();
  scoring->add_option("outputs", outputs, "LABEL=FILE.wav, aligned with the input")->required();
  scoring->add_option("--svg", svg, "picture to write: spectrograms and ERLE over time");
  auto* table = app.add_subcommand("table", "render and score scenes with several settings");
  table->add_option("--scenes", scenes, "names; all standard scenes without it");
  table->add_option("--mics", counts, "microphones")->check(CLI::Range(1, 8));
  table->add_option("--seeds", seeds, "rows are over all of them");
  table->add_option("--settings", settings, "LABEL=FILE.toml (repeatable)");
  table->add_flag("--speex", speex, "SpeexDSP as well");
  bool delays = false;
  table->add_flag("--delays", delays, "count false delays instead of scoring");
  table->add_option("--near", nearFile, "recorded talker, 16 kHz")->required();
  table->add_option("--far", farFile, "recorded far end, 16 kHz")->required();
  if (!tools::parseArguments(app, argc, argv)) return 0;

  if (*list) {
    for (const SceneSpec& spec : standardScenes()) std::cout << spec.name << '\n';
    for (const std::string& kind : sceneKinds()) std::cout << kind << '\n';
  } else if (*head) {
    std::cout << scoreHead;
  } else if (*scene) {
    make(name, seed, microphones, nearFile, farFile, folder);
  } else if (*yardstick) {
    const StoredScene stored = readScene(folder);
    const double tail = std::max(0.128, stored.spec.systemDelay + 0.1);
    const SpeexResult result = runSpeex(stored.scene.mix, stored.scene.far, tail);
    writeChannels(output, {result.output});
    std::printf("%.4f CPU seconds per second of audio\n", result.cpuPerSecond);
  } else if (*table) {
    if (scenes.empty())
      for (const SceneSpec& spec : standardScenes()) scenes.push_back(spec.name);
    const TableJob job{.scenes = scenes,
                       .microphones = counts,
                       .seeds = seeds,
                       .chains = chainsFrom(settings),
                       .yardstick = speex,
                       .nearTalk = readChannels(nearFile)[0],
                       .farTalk = readChannels(farFile)[0]};
    delays ? printDelays(job) : printTable(job);
  } else {
    scoreAll(folder, outputs, svg);
  }
  return 0;
}

}  // namespace
}  // namespace vellumic::quality

int main(int argc, char** argv) {
  try {
    const int result = vellumic::quality::run(argc, argv);
    vellumic::tools::finishPrinting();
    return result;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-quality: %s\n", error.what());
    return 1;
  }
}
