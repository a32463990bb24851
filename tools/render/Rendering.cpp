#include "tools/render/Rendering.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <sstream>

#include "tools/render/CallTiming.h"
#include "tools/render/EffectSummary.h"
#include "tools/render/ProcessUsage.h"
#include "tools/render/ProgressBar.h"

namespace vellumic::tools {
namespace {

template <class... Values>
std::string format(const char* pattern, Values... values) {
  std::array<char, 300> text{};
  std::snprintf(text.data(), text.size(), pattern, values...);
  return text.data();
}

std::vector<std::string> pathLines(const RenderJob& job, const RenderResult& result) {
  const double milliseconds =
      1e3 * static_cast<double>(result.delayFrames) / job.input.format.sampleRate;
  const auto refused = refusal(job);
  return {"Effects: " + result.effects,
          format("Delay: %zu frames = %.1f ms%s", result.delayFrames, milliseconds,
                 job.align ? ", removed" : ""),
          "Library: " + (refused ? "would refuse this stream: " + *refused
                                 : std::string("would accept this stream"))};
}

std::string gainLine(const Rendering& rendering) {
  double low = std::numeric_limits<double>::infinity(), high = -low;
  for (const TracePoint& point : rendering.trace.points()) {
    if (point.probe.blocks == 0) continue;  // no hop has set it yet
    const double gain = gainDecibels(point.probe.levelGain);
    low = std::min(low, gain);
    high = std::max(high, gain);
  }
  return format("Gain control: %.1f dB at the end, %.1f to %.1f dB over the run", *rendering.gain,
                low, high);
}

std::vector<std::string> soundLines(const Rendering& rendering, const SoundFigures& input) {
  const SoundFigures& output = rendering.sound;
  std::vector<std::string> lines{
      format("Level: %.1f dBFS in, %.1f dBFS out; peak %.1f dBFS, %zu samples clipped", input.level,
             output.level, output.peak, output.clipped),
      format("Noise: %.1f dBFS in, %.1f dBFS out in the quietest tenth", input.noise,
             output.noise)};
  if (rendering.erle)
    lines.push_back(format(
        "Echo: %.1f dB less on average while the loudspeakers play, %.1f dB in the best tenth",
        rendering.erle->mean, rendering.erle->best));
  if (rendering.gain) lines.push_back(gainLine(rendering));
  return lines;
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

Rendering renderVariant(RenderJob& job, const Variant& variant, const SoundFigures& input) {
  job.settings = variant.settings;
  job.changes = variant.changes;
  Rendering rendering;
  rendering.label = variant.label;
  rendering.settings = variant.settings;
  rendering.changes = variant.changes;
  CallTiming timing;
  timing.reserve(job.input.frames() / job.blockFrames + 1000);
  const double cpuBefore = cpuSeconds();
  RenderResult result;
  {
    ProgressBar progress;
    result = render(job, [&](const CallReport& call) {
      timing.add(call.microseconds, call.completedBlock);
      rendering.trace.add(call);
      progress.show(call.share);
    });
  }
  const double cpu = cpuSeconds() - cpuBefore;
  writeWave(variant.outputFile, result.output);

  rendering.delayFrames = job.align ? 0 : result.delayFrames;
  rendering.output = firstChannel(result.output);
  rendering.sound = soundFigures(result.output, rendering.delayFrames);
  rendering.erle = erleFigures(rendering.trace);
  if (rendering.trace.arrayRan() && controlsLevel(rendering))
    rendering.gain = gainDecibels(rendering.trace.points().back().probe.levelGain);
  rendering.cpuPerSecond = result.processedSeconds > 0.0 ? cpu / result.processedSeconds : 0.0;
  rendering.lines = pathLines(job, result);
  std::ranges::move(soundLines(rendering, input), std::back_inserter(rendering.lines));
  const double period = static_cast<double>(job.blockFrames) / job.input.format.sampleRate;
  rendering.warning = slownessWarning(timing, period);
  rendering.timingLines =
      splitLines(timingText(timing, period, result.processedSeconds, cpu, peakMegabytes()));
  return rendering;
}

bool controlsLevel(const Rendering& rendering) {
  const auto on = [](const RawValues& values) { return isOn(values, Raw::levelControl); };
  return on(rendering.settings) ||
         std::ranges::any_of(rendering.changes, on, &SettingChange::values);
}

Table figureTable(const std::string& firstHead, const std::vector<Rendering>& renderings) {
  Table table{{firstHead, "level, dBFS", "noise, dBFS", "echo, dB less", "at best", "gain, dB",
               "peak, dBFS", "clipped", "CPU, s/s"}};
  const auto cell = [](const std::optional<double>& value) {
    return value ? format("%.1f", *value) : std::string("-");
  };
  for (const Rendering& one : renderings)
    table.push_back({one.label, cell(one.sound.level), cell(one.sound.noise),
                     cell(one.erle ? std::optional(one.erle->mean) : std::nullopt),
                     cell(one.erle ? std::optional(one.erle->best) : std::nullopt), cell(one.gain),
                     cell(one.sound.peak), std::to_string(one.sound.clipped),
                     format("%.5f", one.cpuPerSecond)});
  return table;
}

std::string plainText(const Table& table) {
  std::vector<std::size_t> widths(table.front().size());
  for (const auto& row : table)
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], row[column].size());
  std::string text;
  for (const auto& row : table) {
    text += row[0] + std::string(widths[0] - row[0].size(), ' ');
    for (std::size_t column = 1; column < row.size(); ++column)
      text += "  " + std::string(widths[column] - row[column].size(), ' ') + row[column];
    text += '\n';
  }
  return text;
}

}  // namespace vellumic::tools
