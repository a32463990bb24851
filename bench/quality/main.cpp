// vellumic-quality: makes the seeded scenes, runs the yardstick on them and scores recordings.
//
//   vellumic-quality list|head
//   vellumic-quality scene NAME --mics N --near TALK.wav --far TALK.wav FOLDER
//   vellumic-quality yardstick FOLDER OUTPUT.wav
//   vellumic-quality score FOLDER LABEL=OUTPUT.wav... [--svg FILE]
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "bench/quality/Scene.h"
#include "bench/quality/Score.h"
#include "bench/quality/SpeexChain.h"
#include "tools/OutputFile.h"
#include "tools/WaveFile.h"
#include "tools/plot/Figure.h"

namespace vellumic::quality {
namespace {

namespace fs = std::filesystem;

Channels readChannels(const fs::path& path) {
  const tools::WaveData wave = tools::readWave(path.string());
  if (wave.samples.empty())
    throw std::runtime_error(path.string() + ": holds no sound; give another file");
  if (wave.format.sampleRate != static_cast<int>(sceneRate))
    throw std::runtime_error(path.string() + ": rate " + std::to_string(wave.format.sampleRate) +
                             " Hz, scenes are at 16000: convert it first");
  const auto channels = static_cast<std::size_t>(wave.format.channels);
  Channels out(channels);
  for (std::size_t n = 0; n < wave.samples.size(); ++n)
    out[n % channels].push_back(wave.samples[n]);
  return out;
}

void writeChannels(const fs::path& path, const Channels& channels) {
  tools::WaveData wave;
  wave.format.sampleRate = static_cast<int>(sceneRate);
  wave.format.channels = static_cast<int>(channels.size());
  for (std::size_t n = 0; n < channels.front().size(); ++n)
    for (const Signal& channel : channels) wave.samples.push_back(channel[n]);
  tools::writeWave(path.string(), wave);
}

SceneSpec specNamed(const std::string& name) {
  for (const SceneSpec& spec : standardScenes())
    if (spec.name == name) return spec;
  throw std::runtime_error("scene '" + name + "' is not known: see `vellumic-quality list`");
}

struct StoredScene {
  SceneSpec spec;
  Scene scene;
};

StoredScene readScene(const fs::path& folder) {
  std::ifstream file(folder / "scene.txt");
  std::string name;
  if (!(file >> name))
    throw std::runtime_error((folder / "scene.txt").string() +
                             ": cannot be read, make the scene first");
  StoredScene stored{specNamed(name), {}};
  stored.scene = {.mix = readChannels(folder / "mix.wav"),
                  .speech = readChannels(folder / "speech.wav"),
                  .noise = readChannels(folder / "noise.wav"),
                  .echo = readChannels(folder / "echo.wav"),
                  .far = readChannels(folder / "far.wav")};
  for (const auto& [name, part] :
       {std::pair{"speech.wav", &stored.scene.speech}, std::pair{"noise.wav", &stored.scene.noise},
        std::pair{"echo.wav", &stored.scene.echo}})
    if (part->front().size() != stored.scene.mix.front().size())
      throw std::runtime_error((folder / name).string() +
                               ": is not as long as mix.wav; make the scene anew");
  if (stored.scene.far.size() != 2)
    throw std::runtime_error((folder / "far.wav").string() +
                             ": has not two channels; make the scene anew");
  for (Signal& side : stored.scene.far) side.resize(stored.scene.mix.front().size());
  stored.spec.microphones = static_cast<int>(stored.scene.mix.size());
  return stored;
}

void make(const std::string& name, int microphones, const std::string& nearFile,
          const std::string& farFile, const fs::path& folder) {
  SceneSpec spec = specNamed(name);
  spec.microphones = microphones;
  const Scene scene = makeScene(spec, readChannels(nearFile)[0], readChannels(farFile)[0]);
  fs::create_directories(folder);
  writeChannels(folder / "mix.wav", scene.mix);
  writeChannels(folder / "speech.wav", scene.speech);
  writeChannels(folder / "noise.wav", scene.noise);
  writeChannels(folder / "echo.wav", scene.echo);
  // The far end goes on in silence, so that the last delayed block still has its references.
  Channels far = scene.far;
  for (Signal& side : far) side.resize(side.size() + static_cast<std::size_t>(sceneRate));
  writeChannels(folder / "far.wav", far);
  std::ofstream(folder / "scene.txt") << name << '\n';
}

std::string cell(const std::optional<double>& value) {
  if (!value) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", *value);
  return text;
}

std::string change(const std::optional<double>& from, const std::optional<double>& to) {
  return from && to ? cell(from) + " > " + cell(to) : "-";
}

// The head of the score table, in the order of the rows below.
constexpr const char* scoreHead =
    "| scene | mics | chain | ERLE from 5 s, dB | to 10 dB, s | to 20 dB, s | double talk SDR, dB "
    "| near SDR, dB | SI-SDR, dB | segmental SNR, dB | speech loss, dB | noise attenuation, dB "
    "| output level, dBFS |\n"
    "|---|---|---|---|---|---|---|---|---|---|---|---|---|\n";

void scoreAll(const fs::path& folder, const std::vector<std::string>& outputs,
              const std::string& svg) {
  const StoredScene stored = readScene(folder);
  plot::Figure figure(
      stored.spec.name + ", " + std::to_string(stored.spec.microphones) + " microphones",
      stored.spec.seconds);
  figure.addSpectrogram("microphone 1", stored.scene.mix[0], sceneRate);
  std::vector<plot::Line> erle;
  for (const std::string& output : outputs) {
    const auto sign = output.find('=');
    if (sign == std::string::npos)
      throw std::runtime_error("'" + output + "': write it as LABEL=FILE.wav");
    const std::string label = output.substr(0, sign);
    const Signal signal = readChannels(output.substr(sign + 1))[0];
    const Score result = score(stored.spec, stored.scene, signal);
    std::cout << "| " << stored.spec.name << " | " << stored.spec.microphones << " | " << label
              << " | " << cell(result.erleAt5s) << " | " << cell(result.timeTo10Db) << " | "
              << cell(result.timeTo20Db) << " | " << cell(result.doubleTalkSdr) << " | "
              << cell(result.nearSdr) << " | " << change(result.siSdrIn, result.siSdrOut) << " | "
              << change(result.segmentalSnrIn, result.segmentalSnrOut) << " | "
              << cell(result.speechLoss) << " | " << cell(result.noiseAttenuation) << " | "
              << cell(result.outputLevel) << " |\n";
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

constexpr const char* footer = R"(
A scene is a folder of WAV files: mix (the microphones), its parts speech, noise and echo, and far
(the loudspeakers). All are at 16 kHz.

Examples:
  vellumic-quality list
  vellumic-quality scene everything room --mics 4 --near talker.wav --far caller.wav
  vellumic-quality yardstick room speex.wav
  vellumic-quality score room ours=clean.wav speex=speex.wav --svg room.svg)";

int run(int argc, char** argv) {
  CLI::App app{"Makes seeded scenes of a talker, noise and loudspeakers, and scores recordings.",
               "vellumic-quality"};
  app.footer(footer);
  app.require_subcommand(1);
  std::string name, nearFile, farFile, folder, output, svg;
  std::vector<std::string> outputs;
  int microphones = 2;

  auto* list = app.add_subcommand("list", "names of the scenes");
  auto* head = app.add_subcommand("head", "head of the score table");
  auto* scene = app.add_subcommand("scene", "make a scene: mix, components and far end as WAV");
  scene->add_option("name", name, "one of `vellumic-quality list`")->required();
  scene->add_option("folder", folder, "made if missing")->required();
  scene->add_option("--mics", microphones, "microphones")->check(CLI::Range(1, 8));
  scene->add_option("--near", nearFile, "recorded talker, 16 kHz")->required();
  scene->add_option("--far", farFile, "recorded far end, 16 kHz")->required();
  auto* yardstick = app.add_subcommand("yardstick", "run SpeexDSP over a scene");
  yardstick->add_option("folder", folder, "a scene")->required();
  yardstick->add_option("output", output, "WAV to write")->required();
  auto* scoring = app.add_subcommand("score", "one table row per output");
  scoring->add_option("folder", folder, "a scene")->required();
  scoring->add_option("outputs", outputs, "LABEL=FILE.wav, aligned with the input")->required();
  scoring->add_option("--svg", svg, "picture to write: spectrograms and ERLE over time");
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    throw std::runtime_error(std::string(error.what()) + "; see vellumic-quality --help");
  }

  if (*list) {
    for (const SceneSpec& spec : standardScenes()) std::cout << spec.name << '\n';
  } else if (*head) {
    std::cout << scoreHead;
  } else if (*scene) {
    make(name, microphones, nearFile, farFile, folder);
  } else if (*yardstick) {
    const StoredScene stored = readScene(folder);
    const double tail = std::max(0.128, stored.spec.systemDelay + 0.1);
    const SpeexResult result = runSpeex(stored.scene.mix, stored.scene.far, tail);
    writeChannels(output, {result.output});
    std::printf("%.4f CPU seconds per second of audio\n", result.cpuPerSecond);
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
