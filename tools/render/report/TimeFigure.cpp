#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "tools/plot/Figure.h"
#include "tools/render/report/ReportFigures.h"

namespace vellumic::tools {
namespace {

using Course = std::vector<std::pair<double, double>>;  // time, value
constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

// No more points than the figure has half pixels.
plot::Line lineOf(const std::string& name, const Course& course) {
  constexpr std::size_t mostPoints = 1800;
  const std::size_t step = course.size() / mostPoints + 1;
  plot::Line line{.name = name, .x = {}, .y = {}};
  for (std::size_t n = 0; n < course.size(); n += step) {
    line.x.push_back(course[n].first);
    line.y.push_back(course[n].second);
  }
  return line;
}

std::string afterName(const Rendering& rendering) {
  return rendering.label.empty() ? "after" : rendering.label;
}

std::string inTitle(const Rendering& rendering) {
  return rendering.label.empty() ? "" : ", " + rendering.label;
}

// What `read` makes of the probe once the array pipeline has begun.
template <class Read>
Course courseOf(const Trace& trace, Read read) {
  Course course;
  for (const TracePoint& point : trace.points())
    course.emplace_back(point.seconds,
                        point.probe.blocks > 0 ? static_cast<double>(read(point.probe)) : unknown);
  return course;
}

// Settings seldom change what follows: one panel serves all renderings that are alike.
using Alike = bool (*)(const Rendering&, const Rendering&);

auto delaysOf(const TracePoint& point) {
  return std::tuple(point.probe.lastLag, point.probe.loopbackDelay, point.probe.microphoneDelay);
}

auto statesOf(const TracePoint& point) {
  return std::tuple(point.probe.streaming, point.probe.delayLocked, point.probe.converged,
                    point.probe.signalActive);
}

template <auto read>
bool alike(const Rendering& a, const Rendering& b) {
  return std::ranges::equal(a.trace.points(), b.trace.points(), {}, read, read);
}

struct Panel {
  const Rendering* rendering;
  std::string suffix;  // of its title
};

std::vector<Panel> panelsOf(const std::vector<Rendering>& renderings, Alike alike) {
  std::vector<Panel> panels;
  for (const Rendering& rendering : renderings)
    if (panels.empty() || !alike(rendering, renderings.front()))
      panels.push_back({.rendering = &rendering, .suffix = inTitle(rendering)});
  if (panels.size() == 1) panels.front().suffix.clear();
  return panels;
}

void addSound(plot::Figure& figure, const RenderJob& job,
              const std::vector<Rendering>& renderings) {
  const int rate = job.input.format.sampleRate;
  const std::vector<float> before = firstChannel(job.input);
  figure.addSpectrogram("Before, channel 1", before, rate);
  std::vector<plot::Line> levels{lineOf("before", levelOverTime(before, rate))};
  if (job.far)
    levels.push_back(
        lineOf("loudspeakers", levelOverTime(firstChannel(*job.far), job.far->format.sampleRate)));
  for (const Rendering& rendering : renderings) {
    figure.addSpectrogram("After, channel 1" + inTitle(rendering), rendering.output, rate);
    levels.push_back(lineOf(afterName(rendering), levelOverTime(rendering.output, rate)));
  }
  figure.addLines("Level of channel 1", "dBFS", std::move(levels), std::pair{-80.0, 0.0});
}

void addEcho(plot::Figure& figure, const std::vector<Rendering>& renderings) {
  std::vector<plot::Line> erle;
  for (const Rendering& rendering : renderings) {
    const Course course = erleOverTime(rendering.trace, erleWindow);
    if (std::ranges::any_of(course, [](const auto& point) { return std::isfinite(point.second); }))
      erle.push_back(lineOf(afterName(rendering), course));
  }
  if (erle.empty()) return;
  figure.addLines("Echo stage: microphone 1 before over after, while the loudspeakers play (ERLE)",
                  "dB", std::move(erle));
  for (const auto& [rendering, suffix] : panelsOf(renderings, alike<delaysOf>)) {
    const Trace& trace = rendering->trace;
    const auto course = [&trace](const char* name, int PipelineProbe::*field) {
      return lineOf(name,
                    courseOf(trace, [field](const PipelineProbe& probe) { return probe.*field; }));
    };
    figure.addLines("Lag of the microphones, delays against it" + suffix, "samples",
                    {course("lag", &PipelineProbe::lastLag),
                     course("loudspeaker delay", &PipelineProbe::loopbackDelay),
                     course("microphone delay", &PipelineProbe::microphoneDelay)});
  }
}

void addGain(plot::Figure& figure, const std::vector<Rendering>& renderings) {
  std::vector<plot::Line> gains;
  for (const Rendering& rendering : renderings)
    if (rendering.gain)
      gains.push_back(
          lineOf(afterName(rendering), courseOf(rendering.trace, [](const PipelineProbe& probe) {
                   return gainDecibels(probe.levelGain);
                 })));
  if (!gains.empty()) figure.addLines("Gain of the level control", "dB", std::move(gains));
}

plot::Bar barOf(const std::string& name, const Trace& trace, bool PipelineProbe::*state) {
  plot::Bar bar{.name = name, .stretches = {}};
  double from = 0.0, last = 0.0;
  bool on = false;
  for (const TracePoint& point : trace.points()) {
    if (on && !(point.probe.*state)) bar.stretches.emplace_back(from, last);
    if (!on && point.probe.*state) from = last;
    on = point.probe.*state;
    last = point.seconds;
  }
  if (on) bar.stretches.emplace_back(from, last);
  return bar;
}

void addStates(plot::Figure& figure, const std::vector<Rendering>& renderings) {
  for (const auto& [rendering, suffix] : panelsOf(renderings, alike<statesOf>)) {
    const Trace& trace = rendering->trace;
    if (!trace.arrayRan()) continue;
    figure.addBars("States" + suffix, {barOf("packets", trace, &PipelineProbe::streaming),
                                       barOf("delay set", trace, &PipelineProbe::delayLocked),
                                       barOf("converged", trace, &PipelineProbe::converged),
                                       barOf("signal", trace, &PipelineProbe::signalActive)});
  }
}

}  // namespace

std::string figureOverTime(const std::string& title, const RenderJob& job,
                           const std::vector<Rendering>& renderings) {
  std::size_t frames = job.input.frames();
  for (const Rendering& rendering : renderings) frames = std::max(frames, rendering.output.size());
  plot::Figure figure(title, static_cast<double>(frames) / job.input.format.sampleRate);
  addSound(figure, job, renderings);
  addEcho(figure, renderings);
  addGain(figure, renderings);
  addStates(figure, renderings);
  return figure.svg();
}

}  // namespace vellumic::tools
