#include "tools/quality/Score.h"

#include <algorithm>
#include <cmath>

#include "filters/BiquadSection.h"

namespace vellumic::quality {
namespace {

constexpr double settling = 4.0;  // s given to the noise estimate before its pauses count
constexpr double early = 0.3;  // s by which an output that nothing aligns may come before its time
constexpr int alignmentReach = 4096;
constexpr std::size_t tenMilliseconds = 160;

bool inside(const std::vector<Span>& spans, double time) {
  return std::any_of(spans.begin(), spans.end(),
                     [time](const Span& s) { return time >= s.from && time < s.to; });
}

// The steps of the times for which `wanted` holds.
template <class Wanted>
std::vector<std::size_t> stepsOf(std::size_t length, Wanted wanted) {
  std::vector<std::size_t> steps;
  for (std::size_t n = 0; n + tenMilliseconds <= length; n += tenMilliseconds)
    if (wanted(static_cast<double>(n) / sceneRate)) steps.push_back(n);
  return steps;
}

Signal gathered(const Signal& signal, const std::vector<std::size_t>& steps) {
  Signal out;
  out.reserve(steps.size() * tenMilliseconds);
  for (const std::size_t n : steps)
    out.insert(out.end(), signal.begin() + static_cast<std::ptrdiff_t>(n),
               signal.begin() + static_cast<std::ptrdiff_t>(n + tenMilliseconds));
  return out;
}

}  // namespace

Signal highPassed(Signal signal) {
  BiquadSection filter;
  filter.type = static_cast<int>(BiquadType::HighPass);
  filter.frequency = 150.0F;
  filter.sampleRate = static_cast<float>(sceneRate);
  filter.design();
  for (float& sample : signal) filter.process(sample);
  return signal;
}

template <class Wanted>
std::optional<Scorer::Stretch> Scorer::stretch(const Scene& scene, Wanted wanted) const {
  std::vector<std::size_t> steps = stepsOf(scene.mix[0].size(), wanted);
  if (steps.empty()) return std::nullopt;
  Signal clean = gathered(scene.speech[0], steps), passed = gathered(passedSpeech_, steps);
  FilterInvariantSdr sdr(clean);
  const Intelligibility stoi(clean);
  Stretch result{std::move(steps), std::move(clean), std::move(passed), std::move(sdr), stoi, {}};
  const Signal in = gathered(scene.mix[0], result.steps);
  result.before[Figure::siSdrIn] = scaleInvariantSdr(result.clean, in);
  result.before[Figure::segmentalSnrIn] = segmentalSnr(result.clean, in);
  result.before[Figure::stoiIn] = result.stoi(in);
  return result;
}

Scorer::Scorer(SceneSpec spec, const Scene& scene)
    : spec_(std::move(spec)), echo_(scene.echo[0]), passedSpeech_(highPassed(scene.speech[0])) {
  const auto near = [this](double t) { return inside(spec_.nearActive, t); };
  const auto far = [this](double t) {
    return inside(spec_.farActive, t) || inside(spec_.farActive, t - 0.5);
  };
  // Without a talker the output is not aligned, and an echo may come before the far end begins.
  const double ahead = energy(passedSpeech_) == 0.0 ? early : 0.0;
  pauses_ = stepsOf(scene.mix[0].size(), [&](double t) {
    return t > settling && !near(t) && !near(t - 0.5) && !far(t) && !far(t + ahead);
  });
  noisePower_ = energy(gathered(scene.noise[0], pauses_));
  alone_ = stretch(scene, [&](double t) { return t > settling && near(t) && !far(t); });
  both_ =
      stretch(scene, [&](double t) { return t > 5.0 && near(t) && inside(spec_.farActive, t); });
}

// The output moved to where it matches the clean speech best.
Signal Scorer::aligned(const Signal& output) const {
  if (energy(passedSpeech_) == 0.0) return output;
  const std::vector<double> match =
      crossCorrelation(passedSpeech_, output, -alignmentReach, alignmentReach);
  const auto best = std::ranges::max_element(match, {}, [](double x) { return std::abs(x); });
  const auto shift = (best - match.begin()) - alignmentReach;
  const auto size = static_cast<std::ptrdiff_t>(output.size());
  Signal moved(output.size());
  for (std::ptrdiff_t n = std::max<std::ptrdiff_t>(0, -shift); n < std::min(size, size - shift);
       ++n)
    moved[static_cast<std::size_t>(n)] = output[static_cast<std::size_t>(n + shift)];
  return moved;
}

void Scorer::scoreEcho(const Signal& output, Score& score) const {
  constexpr double window = 0.5;
  const double start = spec_.farActive.front().from;
  const double quiet = -50.0 + spec_.levelDb;
  std::optional<double> to10, to20;
  // The latest rest of the loopback that is no lost packet.
  double resumed = spec_.seconds;
  for (const Span& gap : spec_.packetGaps)
    if (gap.to - gap.from >= window) resumed = gap.to;
  double in = 0.0, out = 0.0, inResumed = 0.0, outResumed = 0.0;
  for (double t = start; t + window <= spec_.seconds; t += window) {
    // A window counts if only the far end talks in it, and has for the time of an echo tail.
    if (!inside(spec_.farActive, t) || !inside(spec_.farActive, t + window - 0.01)) continue;
    if (inside(spec_.nearActive, t) || inside(spec_.nearActive, t - 0.3)) continue;
    const auto first = static_cast<std::size_t>(t * sceneRate);
    const auto count = static_cast<std::size_t>(window * sceneRate);
    if (first + count > output.size()) break;
    const double echo = energy(View(echo_).subspan(first, count));
    const double left = energy(View(output).subspan(first, count));
    if (decibels(echo / static_cast<double>(count)) < quiet) continue;  // a pause in the talk
    const double db = decibels(echo / std::max(left, 1e-12));
    const double since = t - start + window;
    score.erle.push_back({t + 0.5 * window, db});
    if (db >= 10.0 && !to10) to10 = since;
    if (db >= 20.0 && !to20) to20 = since;
    if (since > 5.0) in += echo, out += left;
    if (t >= resumed + 4.0) inResumed += echo, outResumed += left;
  }
  if (score.erle.empty()) return;
  score.figures[Figure::timeTo10Db] = to10.value_or(spec_.seconds);
  score.figures[Figure::timeTo20Db] = to20.value_or(spec_.seconds);
  if (in > 0.0) score.figures[Figure::erle] = decibels(in / std::max(out, 1e-12));
  if (inResumed > 0.0)
    score.figures[Figure::erleAfterPause] = decibels(inResumed / std::max(outResumed, 1e-12));
}

void Scorer::scoreNear(const Signal& output, Figures& figures) const {
  const Signal& clean = alone_->clean;
  const Signal& passed = alone_->passed;
  const Signal out = gathered(output, alone_->steps);
  for (const Figure figure : {Figure::siSdrIn, Figure::segmentalSnrIn, Figure::stoiIn})
    figures[figure] = alone_->before[figure];
  figures[Figure::siSdr] = std::max(scaleInvariantSdr(clean, out), scaleInvariantSdr(passed, out));
  figures[Figure::segmentalSnr] = std::max(segmentalSnr(clean, out), segmentalSnr(passed, out));
  figures[Figure::nearSdr] = alone_->sdr(out);
  figures[Figure::stoi] = alone_->stoi(out);
  const double kept = std::max(std::abs(dot(clean, out)) / energy(clean),
                               std::abs(dot(passed, out)) / energy(passed));
  figures[Figure::speechLoss] = -decibels(kept * kept);
  if (figures[Figure::noiseAttenuation])
    figures[Figure::snrGain] = *figures[Figure::noiseAttenuation] - *figures[Figure::speechLoss];
}

Score Scorer::operator()(const Signal& rawOutput) const {
  const Signal output = aligned(rawOutput);
  Score score;
  Figures& figures = score.figures;
  if (!pauses_.empty())
    figures[Figure::noiseAttenuation] =
        decibels(noisePower_ / std::max(energy(gathered(output, pauses_)), 1e-12));
  if (alone_) scoreNear(output, figures);
  if (both_) {
    const Signal out = gathered(output, both_->steps);
    figures[Figure::doubleTalkSdr] = both_->sdr(out);
    figures[Figure::doubleTalkStoi] = both_->stoi(out);
    figures[Figure::doubleTalkStoiIn] = both_->before[Figure::stoiIn];
  }
  if (!spec_.farActive.empty()) scoreEcho(output, score);
  const View tail = View(output).subspan(output.size() / 2);
  figures[Figure::outputLevel] = decibels(energy(tail) / static_cast<double>(tail.size()));
  return score;
}

}  // namespace vellumic::quality
